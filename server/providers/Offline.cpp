#include "providers/Offline.h"

#include "config/Config.h"
#include "config/TomlReader.h"
#include "model/BlockingAnswer.h"

#include <algorithm>
#include <array>
#include <functional>
#include <memory>

namespace quellora::server {
namespace {

const std::string heading = "## No model is configured\n\n";
const std::string footer =
    "\n---\n\nThis answer was made on this machine, without a model. For real answers ";

std::size_t lineCount(const ReadPage &page)
{
    std::size_t count = 0;
    for (const ReadBlock &block : page.blocks)
        count += block.lines.size();
    return count;
}

/// @p text with all Markdown markup escaped.
std::string escaped(const std::string &text)
{
    static constexpr std::string_view special = "\\`*_[]<>#|~!&";
    std::string out;
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos)
            out += '\\';
        out += c;
    }
    return out;
}

std::string fenced(const ReadBlock &block)
{
    std::string body;
    std::size_t longestRun = 0;
    std::size_t run = 0;
    for (const ReadLine &line : block.lines) {
        body += std::string(static_cast<std::size_t>(line.indent), ' ') + line.text + '\n';
        for (const char c : line.text) {
            run = c == '`' ? run + 1 : 0;
            longestRun = std::max(longestRun, run);
        }
    }
    const std::string fence(std::max<std::size_t>(3, longestRun + 1), '`');
    return fence + "\n" + body + fence + "\n\n";
}

std::string listed(const ReadBlock &block)
{
    std::string out;
    for (const ReadLine &line : block.lines)
        out += "- " + escaped(line.text) + "\n";
    return out + "\n";
}

/// Appends a block to @p whole after an empty line. Both keep their columns.
void append(ReadBlock &whole, const ReadBlock &next)
{
    const int column = std::min(whole.column, next.column);
    for (ReadLine &line : whole.lines)
        line.indent += whole.column - column;
    whole.lines.push_back(ReadLine{});
    for (const ReadLine &line : next.lines)
        whole.lines.push_back(ReadLine{line.text, line.indent + next.column - column});
    whole.column = column;
}

bool startsWithAny(const std::string &text, const auto &words)
{
    return std::any_of(words.begin(), words.end(),
                       [&](std::string_view word) { return text.rfind(word, 0) == 0; });
}

bool codeLine(const std::string &text)
{
    static constexpr std::array<std::string_view, 22> openers = {
        "def ",    "class ", "import ", "from ",   "#include", "return ",   "if (", "for (",
        "while (", "else",   "elif ",   "public ", "private ", "const ",    "let ", "var ",
        "func ",   "fn ",    "using ",  "//",      "struct ",  "namespace "};
    const char last = text.empty() ? ' ' : text.back();
    if (last == ';' || last == '{' || last == '}' || startsWithAny(text, openers))
        return true;
    const bool call = text.find('(') != std::string::npos && text.find(')') != std::string::npos &&
                      text.find(' ') > text.find('(');
    const bool assignment =
        text.find(" = ") != std::string::npos || text.find(" == ") != std::string::npos ||
        text.find("->") != std::string::npos || text.find("=>") != std::string::npos;
    // A sentence may contain an equals sign too, but is longer or ends with a full stop.
    return (call || assignment) && last != '.' && std::count(text.begin(), text.end(), ' ') < 12;
}

bool looksLikeCode(const ReadBlock &block)
{
    const auto code = std::count_if(block.lines.begin(), block.lines.end(),
                                    [](const ReadLine &line) { return codeLine(line.text); });
    return block.lines.size() >= 2 && static_cast<std::size_t>(code) * 2 >= block.lines.size();
}

AnswerOutcome answer(const std::shared_ptr<TextRecognizer> &recognizer, const std::string &setup,
                     const ModelRequest &request, const TextSink &sink, const StopToken &stop)
{
    AnswerOutcome outcome;
    outcome.kind = AnswerOutcome::Kind::Complete;
    const auto cancelled = [&outcome] {
        outcome.kind = AnswerOutcome::Kind::Cancelled;
        return outcome;
    };
    // Sent before the recognition starts, so that the panel reacts at once.
    if (!sink(heading))
        return cancelled();
    std::vector<std::string> pieces;
    if (request.jpeg.empty()) {
        pieces.push_back("Your question arrived (" + std::to_string(request.prompt.size()) +
                         " bytes), but there is no model here to answer it. With a screenshot, "
                         "this backend would at least show the text in it.\n");
    } else if (const auto page = recognizer->read(request.jpeg, stop)) {
        pieces = offlineMarkdown(*page);
    } else if (page.error() == ReadError::NoLanguageData) {
        pieces.push_back("The screenshot arrived, but the language data for reading its text is "
                         "not installed (package `tesseract-ocr-eng`).\n");
    } else {
        pieces.push_back("The screenshot could not be decoded.\n");
    }
    pieces.push_back(footer + (request.connectPage.empty()
                                   ? "set " + setup + ", and start `quellora-backend` again.\n"
                                   : "choose **Connect a model** in the menu, or open <" +
                                         request.connectPage + ">.\n"));
    for (const std::string &piece : pieces) {
        if (stop.stopRequested() || !sink(piece))
            return cancelled();
    }
    return outcome;
}

ConfiguredProvider configure(TomlReader &table, const Environment &)
{
    ConfiguredProvider provider;
    RecognizerSettings settings;
    std::int64_t budget = settings.budget.count();
    table.read("force", provider.isExclusive);
    table.read("languages", settings.languages);
    table.read("data_directory", settings.dataDirectory);
    table.read("budget_milliseconds", budget, 100, 600000);
    settings.budget = std::chrono::milliseconds(budget);

    provider.destination = "localhost";
    provider.models = {
        {"offline", "Offline reader", "Reads the screenshot's text on this machine"}};
    provider.makeAnswer = [settings](const Config &config) {
        return answerOnWorkers(std::bind_front(answer, std::make_shared<TextRecognizer>(settings),
                                               config.setupHint("`", "`")));
    };
    return provider;
}

} // namespace

std::vector<std::string> offlineMarkdown(const ReadPage &page)
{
    std::vector<std::string> pieces;
    const std::size_t count = lineCount(page);
    const std::string size = std::to_string(page.width) + " × " + std::to_string(page.height);
    if (count == 0) {
        pieces.push_back("The screenshot (" + size +
                         ") arrived, but no text could be read in it.\n");
        return pieces;
    }
    pieces.push_back("### Text in the screenshot\n\n" + std::to_string(count) +
                     (count == 1 ? " line" : " lines") + " read from " + size + " pixels" +
                     (page.cutShort ? "; reading was cut short" : "") + ".\n\n");
    for (std::size_t i = 0; i < page.blocks.size();) {
        const bool code = looksLikeCode(page.blocks[i]);
        ReadBlock joined = page.blocks[i++];
        // Blank lines split a program into blocks; it reads better in one piece.
        while (code && i < page.blocks.size() && looksLikeCode(page.blocks[i]))
            append(joined, page.blocks[i++]);
        pieces.push_back(code ? fenced(joined) : listed(joined));
    }
    return pieces;
}

/// Answers without a model: says so, and shows the text of the screenshot.
Provider providerOffline()
{
    return {"offline", configure};
}

} // namespace quellora::server
