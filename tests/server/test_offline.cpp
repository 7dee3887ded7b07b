#include "ServerKit.h"

#include "model/ModelCatalog.h"
#include "providers/Offline.h"

#include <leptonica/allheaders.h>

namespace quellora::server {
namespace {

/// A JPEG with the text in the library's built-in bitmap font.
std::string pictureOf(const std::string &text, bool lightOnDark = false)
{
    Pix *page = pixCreate(1280, 800, 8);
    pixSetAllArbitrary(page, 255);
    L_Bmf *face = bmfCreate(nullptr, 14);
    l_int32 overflow = 0;
    pixSetTextblock(page, face, text.c_str(), 0, 60, 80, 1100, 0, &overflow);
    if (lightOnDark)
        pixInvert(page, page);
    l_uint8 *bytes = nullptr;
    size_t size = 0;
    pixWriteMemJpeg(&bytes, &size, page, 85, 0);
    std::string jpeg(reinterpret_cast<const char *>(bytes), size);
    lept_free(bytes);
    bmfDestroy(&face);
    pixDestroy(&page);
    return jpeg;
}

ReadBlock block(std::initializer_list<ReadLine> lines, int column = 0)
{
    return ReadBlock{lines, column};
}

struct Answer
{
    AnswerOutcome outcome;
    std::vector<std::string> pieces;
    std::string text;
};

/// The answers of the offline provider, configured with @p toml.
AnswerSource offlineAnswer(const std::string &toml = "")
{
    const auto config = Config::parse(toml, "test", environmentOf({})).value();
    CircuitBreakers breakers;
    return ModelCatalog(config, {}, breakers).choose(std::nullopt).answer;
}

Answer ask(const ModelRequest &request, const std::string &toml = "")
{
    Answer answer;
    EventLoop loop;
    WorkerPool workers(1, 1);
    answer.outcome = waitForAnswer(offlineAnswer(toml), request,
                                   [&](std::string_view piece) {
                                       answer.pieces.emplace_back(piece);
                                       answer.text += piece;
                                       return true;
                                   },
                                   StopToken(), {loop, workers});
    return answer;
}

std::string markdownOf(const ReadPage &page)
{
    std::string text;
    for (const std::string &piece : offlineMarkdown(page))
        text += piece;
    return text;
}

bool isFenced(const ReadBlock &block)
{
    ReadPage page;
    page.blocks.push_back(block);
    return markdownOf(page).find("```") != std::string::npos;
}

class OfflineReading : public testing::TestWithParam<bool>
{};

TEST_P(OfflineReading, ShowsTheTextOfTheScreenshot)
{
    const Answer answer =
        ask({"p",
             pictureOf("Quarterly revenue rose sharply\nThe forecast for October is cautious",
                       GetParam()),
             ""});
    EXPECT_EQ(answer.outcome.kind, AnswerOutcome::Kind::Complete);
    EXPECT_GE(answer.pieces.size(), 4U);
    EXPECT_NE(answer.text.find("No model is configured"), std::string::npos);
    EXPECT_NE(answer.text.find("For real answers set `ANTHROPIC_API_KEY`, or `OPENAI_BASE_URL` for "
                               "a server such as llama.cpp or Ollama, and start "
                               "`quellora-backend` again.\n"),
              std::string::npos);
    EXPECT_NE(answer.text.find("- Quarterly revenue rose sharply"), std::string::npos)
        << answer.text;
    EXPECT_NE(answer.text.find("October is cautious"), std::string::npos) << answer.text;
    EXPECT_NE(answer.text.find("1280 × 800"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Offline, OfflineReading, testing::Bool());

TEST(Offline, ReportsAPictureWithoutText)
{
    EXPECT_NE(ask({"p", pictureOf(""), ""}).text.find("no text could be read"), std::string::npos);
}

TEST(Offline, ReportsUndecodablePictures)
{
    const std::string whole = pictureOf("words");
    for (const std::string &jpeg : {std::string("\xFF\xD8\xFF\xE0zzzz"), whole.substr(0, 200)})
        EXPECT_NE(ask({"p", jpeg, ""}).text.find("could not be decoded"), std::string::npos);
}

TEST(Offline, OversizedPicturesAreNotDecoded)
{
    // A small picture whose header claims 65535 x 65535 pixels.
    std::string jpeg = pictureOf("words");
    const std::size_t frame = jpeg.find("\xFF\xC0");
    ASSERT_NE(frame, std::string::npos);
    jpeg.replace(frame + 5, 4, "\xFF\xFF\xFF\xFF");
    EXPECT_NE(ask({"p", jpeg, ""}).text.find("could not be decoded"), std::string::npos);
}

TEST(Offline, ReportsMissingLanguageData)
{
    const Answer answer =
        ask({"p", pictureOf("words"), ""}, "[offline]\ndata_directory = '/nonexistent'");
    EXPECT_EQ(answer.outcome.kind, AnswerOutcome::Kind::Complete);
    EXPECT_NE(answer.text.find("tesseract-ocr-eng"), std::string::npos);
}

TEST(Offline, AcknowledgesAQuestionWithoutPicture)
{
    const Answer answer = ask({"Why?", "", ""});
    EXPECT_NE(answer.text.find("4 bytes"), std::string::npos);
    EXPECT_NE(answer.text.find("no model here"), std::string::npos);
}

TEST(Offline, ReadingStopsWhenItsBudgetIsSpent)
{
    RecognizerSettings settings;
    settings.budget = std::chrono::milliseconds(-1);
    TextRecognizer recognizer(settings);
    const auto page = recognizer.read(pictureOf("some words here"), StopToken());
    ASSERT_TRUE(page);
    EXPECT_TRUE(page->cutShort);
    EXPECT_TRUE(page->blocks.empty());
}

TEST(Offline, StopsWhenTheSinkReturnsFalse)
{
    EventLoop loop;
    WorkerPool workers(1, 1);
    const AnswerOutcome outcome =
        waitForAnswer(offlineAnswer(), {"p", "", ""}, [](std::string_view) { return false; },
                      StopToken(), {loop, workers});
    EXPECT_EQ(outcome.kind, AnswerOutcome::Kind::Cancelled);
}

TEST(OfflineMarkdown, CodeIsFencedWithItsIndentation)
{
    ReadPage page;
    page.blocks.push_back(block({{"def f(x):", 0}, {"return x", 4}}, 3));
    page.blocks.push_back(block({{"y = f(2)", 0}, {"print(y)", 0}}, 7));
    const std::string text = markdownOf(page);
    EXPECT_NE(text.find("```\ndef f(x):\n    return x\n\n    y = f(2)\n    print(y)\n```\n"),
              std::string::npos)
        << text;
}

TEST(OfflineMarkdown, TextIsListedWithMarkupEscaped)
{
    ReadPage page;
    page.blocks.push_back(block({{"# <img src=x> [a](b) `c` *d*", 0}, {"Plain words here.", 0}}));
    const std::string text = markdownOf(page);
    EXPECT_NE(text.find("- \\# \\<img src=x\\> \\[a\\](b) \\`c\\` \\*d\\*\n- Plain words here.\n"),
              std::string::npos)
        << text;
}

TEST(OfflineMarkdown, FenceIsLongerThanAnyBacktickRunInTheCode)
{
    ReadPage page;
    page.blocks.push_back(block({{"x = 1;", 0}, {"```` y;", 0}}));
    const std::string text = markdownOf(page);
    EXPECT_NE(text.find("`````\nx = 1;"), std::string::npos) << text;
}

TEST(OfflineMarkdown, ProseIsNotTreatedAsCode)
{
    EXPECT_FALSE(isFenced(block({{"Example 1: nums = [2,7,11,15], target = 9. The output is "
                                  "[0,1] because nums[0] +",
                                  0},
                                 {"nums[1] equals 9, so we return [0, 1].", 0}})));
    EXPECT_TRUE(isFenced(block({{"int main()", 0}, {"{", 0}, {"return 0;", 4}, {"}", 0}})));
    EXPECT_FALSE(isFenced(block({{"x = 1", 0}})));
}

} // namespace
} // namespace quellora::server
