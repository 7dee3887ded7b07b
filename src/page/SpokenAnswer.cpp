#include "page/SpokenAnswer.h"

#include <QRegularExpression>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

/// A shorter line may still turn out to be something else than text.
constexpr qsizetype settledLength = 8;
/// Text without a sentence's end is said in parts of about this length.
constexpr qsizetype maximumLength = 1000;

bool matches(const QRegularExpression &expression, const QString &text)
{
    return expression.match(text).hasMatch();
}

const QRegularExpression &fence()
{
    static const QRegularExpression expression(
        QStringLiteral("^\\s*(`{3,}|~{3,})[ \\t]*([^\\s`{]*)[^`]*$"));
    return expression;
}

const QRegularExpression &listMark()
{
    static const QRegularExpression expression(
        QStringLiteral("^\\s*(?:[-*+]|(\\d{1,9})[.)])\\s+(?:\\[([ xX])\\]\\s+)?"));
    return expression;
}

/// Underlines of headings, rules and the lines below the headers of tables.
bool isRule(const QString &line)
{
    static const QRegularExpression expression(QStringLiteral(
        "^\\s*(?:=+|-+|(?:[-*_]\\s*){3,}|\\|?\\s*:?-+:?\\s*(?:\\|\\s*:?-+:?\\s*)*\\|?)\\s*$"));
    return matches(expression, line);
}

bool isLinkDefinition(const QString &line)
{
    static const QRegularExpression expression(
        QStringLiteral("^ {0,3}\\[(?!\\^)[^\\]]+\\]:\\s*\\S+"));
    return matches(expression, line);
}

/// Whether a sentence may end behind @p source: not inside a link, an address, a tag, code or a
/// formula.
bool isBalanced(const QString &source)
{
    static const QRegularExpression openLink(
        QStringLiteral("\\[[^\\]]*$|\\]\\([^)]*$|https?://\\S*$|<[a-zA-Z!/][^<>]*$"));
    return source.count(QLatin1Char('`')) % 2 == 0 && !matches(openLink, source) &&
           source.lastIndexOf(QLatin1StringView("\\(")) <=
               source.lastIndexOf(QLatin1StringView("\\)"));
}

/// The text of Markdown source as it is shown, in one line.
QString shownText(QString text)
{
    struct Rule
    {
        QRegularExpression pattern;
        QString replacement;
    };
    static const QList<Rule> rules{
        // Pictures and links, marks of footnotes, addresses.
        {QRegularExpression(
             QStringLiteral("!?\\[([^\\[\\]]*)\\]\\([^()]*(?:\\([^()]*\\)[^()]*)?\\)")),
         QStringLiteral("\\1")},
        {QRegularExpression(QStringLiteral("\\[\\^[^\\]]*\\]")), QString()},
        {QRegularExpression(QStringLiteral("\\[([^\\[\\]]+)\\]\\[[^\\[\\]]*\\]")),
         QStringLiteral("\\1")},
        {QRegularExpression(QStringLiteral("<?https?://(?:www\\.)?([^/\\s>)]+)[^\\s>)]*>?")),
         QStringLiteral("\\1")},
        {QRegularExpression(QStringLiteral("</?[a-zA-Z!][^<>]*>")), QString()},
        // Formulas in the text.
        {QRegularExpression(QStringLiteral("\\\\[()]")), QString()},
        {QRegularExpression(QStringLiteral("(?<![\\w$])\\$(?=[^\\s$])([^$]*[^\\s$])\\$(?![\\w$])")),
         QStringLiteral("\\1")},
        // Code, emphasis, escapes.
        {QRegularExpression(QStringLiteral("`+")), QString()},
        {QRegularExpression(QStringLiteral("(?<!\\\\)[*~]{1,3}(?=\\S)|(?<=[^\\s\\\\])[*~]{1,3}")),
         QString()},
        {QRegularExpression(
             QStringLiteral("(?<![\\w\\\\])_{1,3}(?=\\S)|(?<=[^\\s\\\\])_{1,3}(?!\\w)")),
         QString()},
        {QRegularExpression(QStringLiteral("\\\\([!-/:-@\\[-`{-~])")), QStringLiteral("\\1")},
        {QRegularExpression(QStringLiteral("&nbsp;")), QStringLiteral(" ")},
        {QRegularExpression(QStringLiteral("&lt;")), QStringLiteral("<")},
        {QRegularExpression(QStringLiteral("&gt;")), QStringLiteral(">")},
        {QRegularExpression(QStringLiteral("&quot;")), QStringLiteral("\"")},
        {QRegularExpression(QStringLiteral("&amp;")), QStringLiteral("&")},
    };
    for (const Rule &rule : rules)
        text.replace(rule.pattern, rule.replacement);
    return text.simplified();
}

/// The text of a line of a paragraph, heading, quote or list, with its mark in words.
QString textOfLine(QString line)
{
    static const QRegularExpression quote(QStringLiteral("^\\s*(?:>\\s?)+"));
    static const QRegularExpression heading(QStringLiteral("^\\s*#{1,6}\\s+"));
    static const QRegularExpression note(QStringLiteral("^ {0,3}\\[\\^([^\\]]+)\\]:\\s+"));
    line.remove(quote);
    if (const auto mark = listMark().match(line); mark.hasMatch()) {
        const QString number =
            mark.captured(1).isEmpty() ? QString() : mark.captured(1) + QStringLiteral(": ");
        const QString task = mark.captured(2).isEmpty()             ? QString()
                             : mark.captured(2) == QLatin1Char(' ') ? QStringLiteral("To do: ")
                                                                    : QStringLiteral("Done: ");
        return number + task + line.mid(mark.capturedEnd());
    }
    line.replace(note, QStringLiteral("Footnote \\1: "));
    line.remove(heading);
    return line;
}

/// Whether @p line begins a block of its own.
bool beginsBlock(const QString &line)
{
    static const QRegularExpression expression(
        QStringLiteral("^\\s*(?:#{1,6}\\s|>|\\[\\^[^\\]]+\\]:)"));
    return matches(expression, line) || matches(listMark(), line);
}

bool isHeading(const QString &line)
{
    static const QRegularExpression expression(QStringLiteral("^ {0,3}#{1,6}\\s"));
    return matches(expression, line);
}

} // namespace

QStringList SpokenAnswer::sentencesOf(const QString &markdown, Code code)
{
    SpokenAnswer answer(code);
    QStringList sentences = answer.append(markdown);
    sentences += answer.finish();
    return sentences;
}

QStringList SpokenAnswer::append(const QString &piece)
{
    for (const QChar c : piece) {
        const bool isSecondOfTwo = c == QLatin1Char('\n') && m_endsWithReturn;
        m_endsWithReturn = c == QLatin1Char('\r');
        if (isSecondOfTwo)
            continue;
        if (m_endsWithReturn || c == QLatin1Char('\n'))
            takeLine();
        else
            (m_isLineBegun ? m_block : m_line) += c;
    }
    if (!m_isLineBegun)
        beginLine();
    if (m_isLineBegun)
        takeSentences();
    return std::exchange(m_sentences, {});
}

QStringList SpokenAnswer::finish()
{
    if (m_isLineBegun || !m_line.isEmpty())
        takeLine();
    endBlock();
    if (m_named)
        endNamedBlock();
    QStringList sentences = std::move(m_sentences);
    *this = SpokenAnswer(m_code);
    return sentences;
}

void SpokenAnswer::takeLine()
{
    if (!m_isLineBegun) {
        if (takeSpecialLine(m_line)) {
            m_line.clear();
            return;
        }
        takeText();
    }
    m_isLineBegun = false;
    m_block += QLatin1Char(' ');
    if (m_isHeading)
        endBlock();
    else
        takeSentences();
}

void SpokenAnswer::beginLine()
{
    static const QRegularExpression mayBeSpecial(QStringLiteral(
        "^(?: {4}|\\t)|^\\s*(?:\\||`{3}|~{3}|\\$\\$|\\\\\\[|\\[(?![^\\]]*\\][^:]))"));
    if (!m_named && m_line.trimmed().size() >= settledLength && !matches(mayBeSpecial, m_line) &&
        !isRule(m_line))
        takeText();
}

bool SpokenAnswer::takeSpecialLine(const QString &line)
{
    const QString text = line.trimmed();
    if (m_named) {
        const bool isIndentedCode = m_named->end.isEmpty();
        const bool isEnd = isIndentedCode ? !text.isEmpty() && !line.startsWith(QLatin1Char(' ')) &&
                                                !line.startsWith(QLatin1Char('\t'))
                           : m_named->isCode ? text.startsWith(m_named->end) &&
                                                   text.count(m_named->end.front()) == text.size()
                                             : text.contains(m_named->end);
        if (!isEnd) {
            if (!text.isEmpty() || !isIndentedCode)
                ++m_named->lines;
            if (m_named->isCode && m_code == Code::Read && !text.isEmpty())
                m_sentences << text.left(maximumLength);
            return true;
        }
        endNamedBlock();
        // The line that ends indented code is not part of it.
        return isIndentedCode ? takeSpecialLine(line) : true;
    }
    if (text.isEmpty()) {
        endBlock();
        return true;
    }
    if (beginNamedBlock(line))
        return true;
    if (isRule(line) || isLinkDefinition(line)) {
        endBlock();
        return true;
    }
    if (text.startsWith(QLatin1Char('|'))) {
        endBlock();
        QStringList cells;
        for (const QString &cell : text.left(maximumLength).split(QLatin1Char('|'))) {
            if (!cell.trimmed().isEmpty())
                cells << shownText(cell);
        }
        say(cells.join(QStringLiteral(", ")));
        return true;
    }
    return false;
}

bool SpokenAnswer::beginNamedBlock(const QString &line)
{
    const QString text = line.trimmed();
    if (const auto mark = fence().match(line); mark.hasMatch()) {
        endBlock();
        const QString language = mark.captured(2).left(40);
        m_named =
            Named{mark.captured(1), language.isEmpty() ? QStringLiteral("Code block")
                                                       : QStringLiteral("Code block, ") + language};
        return true;
    }
    const bool isDollar = text.startsWith(QLatin1StringView("$$"));
    if (isDollar || text.startsWith(QLatin1StringView("\\["))) {
        endBlock();
        m_named = Named{isDollar ? QStringLiteral("$$") : QStringLiteral("\\]"),
                        QStringLiteral("Formula"), false};
        if (text.mid(2).contains(m_named->end))
            endNamedBlock();
        return true;
    }
    const bool isIndented =
        line.startsWith(QLatin1StringView("    ")) || line.startsWith(QLatin1Char('\t'));
    if (isIndented && m_block.trimmed().isEmpty() && !m_isInList) {
        m_named = Named{QString(), QStringLiteral("Code block")};
        takeSpecialLine(line);
        return true;
    }
    return false;
}

void SpokenAnswer::endNamedBlock()
{
    const Named block = *std::exchange(m_named, std::nullopt);
    if (block.isCode && m_code == Code::Read)
        return;
    QString name = block.name;
    if (block.isCode)
        name += QStringLiteral(", %1 %2")
                    .arg(block.lines)
                    .arg(block.lines == 1 ? QStringLiteral("line") : QStringLiteral("lines"));
    m_sentences << name + QLatin1Char('.');
}

void SpokenAnswer::takeText()
{
    const bool isItem = matches(listMark(), m_line);
    if (beginsBlock(m_line))
        endBlock();
    if (isItem || !m_line.startsWith(QLatin1Char(' ')))
        m_isInList = isItem || (m_isInList && !m_block.isEmpty());
    m_isHeading = isHeading(m_line);
    m_block += textOfLine(std::exchange(m_line, QString()));
    m_isLineBegun = true;
}

void SpokenAnswer::takeSentences()
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Sentence, m_block);
    qsizetype begin = 0;
    // What follows the last end may still belong to the sentence before it.
    for (qsizetype end = finder.toNextBoundary(); end > 0 && end < m_block.size();
         end = finder.toNextBoundary()) {
        const bool isLong = end - begin > maximumLength;
        if (!isLong && !isBalanced(m_block.mid(begin, end - begin)))
            continue;
        say(m_block.mid(begin, end - begin));
        begin = end;
    }
    if (m_block.size() - begin > 2 * maximumLength) {
        const qsizetype space = m_block.lastIndexOf(QLatin1Char(' '));
        const qsizetype end = space > begin ? space : m_block.size();
        say(m_block.mid(begin, end - begin));
        begin = end;
    }
    m_block.remove(0, begin);
}

void SpokenAnswer::endBlock()
{
    takeSentences();
    say(std::exchange(m_block, QString()));
}

void SpokenAnswer::say(const QString &source)
{
    for (qsizetype begin = 0; begin < source.size();) {
        qsizetype end = std::min(begin + maximumLength, source.size());
        if (const qsizetype space = source.lastIndexOf(QLatin1Char(' '), end - 1);
            end < source.size() && space > begin)
            end = space;
        const QString text = shownText(source.mid(begin, end - begin));
        const bool hasWords =
            std::any_of(text.begin(), text.end(), [](QChar c) { return c.isLetterOrNumber(); });
        if (hasWords)
            m_sentences << text;
        begin = end;
    }
}

} // namespace quellora
