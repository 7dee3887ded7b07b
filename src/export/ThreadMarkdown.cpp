#include "export/ThreadMarkdown.h"

#include "export/AnswerMarkdown.h"

#include <QLocale>
#include <QRegularExpression>
#include <QStringList>

#include <array>

namespace quellora::threadmarkdown {

namespace {

QString withLineFeeds(const QString &text)
{
    static const QRegularExpression lineEnd(QStringLiteral("\\r\\n?"));
    return QString(text).replace(lineEnd, QStringLiteral("\n"));
}

/// One line of a text, escaped.
QString escapedLine(const QString &line)
{
    // What can begin a block: rules, lists, headings, quotes, tables, underlines of headings.
    static const QRegularExpression blockStart(
        QStringLiteral("^(?:[#>|]|[+-](?=[ \\t-]|$|[-:| \\t]*$)|=+[ \\t]*$|:?-+[-:| \\t]*$)"));
    static const QRegularExpression number(QStringLiteral("^(\\d{1,9})([.)])(?=[ \\t]|$)"));
    static const QRegularExpression mark(
        QStringLiteral("([\\\\`*\\[~$|]|(?<![\\p{L}\\p{N}])_|_(?![\\p{L}\\p{N}])"
                       "|<(?=[\\p{L}/!?])|&(?=#?\\w+;))"),
        QRegularExpression::UseUnicodePropertiesOption);
    static const QRegularExpression blanks(QStringLiteral("^[ \\t]+| {2,}|\\t+| +$"));

    QString text = line;
    // Not in place: a mark at the beginning is escaped once.
    const bool startsBlock = blockStart.match(text.trimmed()).hasMatch();
    text.replace(mark, QStringLiteral("\\\\1"));
    const qsizetype indentation =
        std::distance(text.cbegin(), std::find_if_not(text.cbegin(), text.cend(), [](QChar c) {
                          return c == QLatin1Char(' ') || c == QLatin1Char('\t');
                      }));
    if (startsBlock && text[indentation] != QLatin1Char('\\'))
        text.insert(indentation, QLatin1Char('\\'));
    QString rest = text.mid(indentation);
    rest.replace(number, QStringLiteral("\\1\\\\2"));
    text = text.left(indentation) + rest;
    // Blanks in a row would become one, at the beginning of a line none.
    for (qsizetype from = 0;;) {
        const auto found = blanks.match(text, from);
        if (!found.hasMatch())
            return text;
        QString wide;
        for (const QChar blank : found.captured())
            wide += blank == QLatin1Char('\t') ? QStringLiteral("&nbsp;&nbsp;&nbsp;&nbsp;")
                                               : QStringLiteral("&nbsp;");
        text.replace(found.capturedStart(), found.capturedLength(), wide);
        from = found.capturedStart() + wide.size();
    }
}

QString quoted(const QString &markdown)
{
    QStringList lines = markdown.split(QLatin1Char('\n'));
    for (QString &line : lines)
        line = line.isEmpty() ? QStringLiteral(">") : QStringLiteral("> ") + line;
    return lines.join(QLatin1Char('\n'));
}

QString pictureMarkdown(const CaptureSession::Screenshot &screenshot, const PictureLink &link)
{
    const QString address = link(screenshot);
    return address.isEmpty()
               ? QString()
               : QStringLiteral("\n![Screenshot %1](%2)\n").arg(screenshot.index + 1).arg(address);
}

} // namespace

QString dateText(const QDateTime &time)
{
    static const QLocale english(QLocale::English, QLocale::UnitedStates);
    return english.toString(time.toLocalTime(), QStringLiteral("MMM d, yyyy, h:mm AP"));
}

QString titleOf(const CaptureSession &thread)
{
    return thread.customTitle.value_or(thread.previewText()).simplified();
}

QString escaped(const QString &text)
{
    QStringList lines = withLineFeeds(text).split(QLatin1Char('\n'));
    for (qsizetype i = 0; i < lines.size(); ++i) {
        lines[i] = escapedLine(lines[i]);
        // A line break of the text is one in the result; an empty line ends a paragraph.
        if (i + 1 < lines.size() && !lines[i].isEmpty() && !lines[i + 1].isEmpty())
            lines[i] += QLatin1Char('\\');
    }
    return lines.join(QLatin1Char('\n'));
}

QString closed(const QString &answer)
{
    static const QRegularExpression fence(QStringLiteral("^ {0,3}(`{3,}|~{3,})(.*)$"));
    struct HtmlBlock
    {
        QRegularExpression start;
        QString end;
    };
    static const auto ignoringCase = QRegularExpression::CaseInsensitiveOption;
    static const std::array htmlBlocks{
        HtmlBlock{QRegularExpression(QStringLiteral("<!--")), QStringLiteral("-->")},
        HtmlBlock{QRegularExpression(QStringLiteral("^ {0,3}<\\?")), QStringLiteral("?>")},
        HtmlBlock{QRegularExpression(QStringLiteral("^ {0,3}<!\\[CDATA\\[")),
                  QStringLiteral("]]>")},
        HtmlBlock{QRegularExpression(QStringLiteral("^ {0,3}<script(?=[\\s>]|$)"), ignoringCase),
                  QStringLiteral("</script>")},
        HtmlBlock{QRegularExpression(QStringLiteral("^ {0,3}<style(?=[\\s>]|$)"), ignoringCase),
                  QStringLiteral("</style>")},
        HtmlBlock{QRegularExpression(QStringLiteral("^ {0,3}<pre(?=[\\s>]|$)"), ignoringCase),
                  QStringLiteral("</pre>")},
        HtmlBlock{QRegularExpression(QStringLiteral("^ {0,3}<textarea(?=[\\s>]|$)"), ignoringCase),
                  QStringLiteral("</textarea>")},
    };

    const QString text = withLineFeeds(answer);
    QString openFence;
    const HtmlBlock *openHtml = nullptr;
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        qsizetype from = 0;
        if (openHtml) {
            const qsizetype end = line.indexOf(openHtml->end, 0, Qt::CaseInsensitive);
            if (end < 0)
                continue;
            from = end + openHtml->end.size();
            openHtml = nullptr;
        } else if (const auto match = fence.match(line); match.hasMatch()) {
            const QString marks = match.captured(1);
            const QString info = match.captured(2);
            if (openFence.isEmpty()) {
                if (marks[0] == QLatin1Char('~') || !info.contains(QLatin1Char('`')))
                    openFence = marks;
            } else if (marks[0] == openFence[0] && marks.size() >= openFence.size() &&
                       info.trimmed().isEmpty()) {
                openFence.clear();
            }
            continue;
        }
        if (!openFence.isEmpty())
            continue;
        for (const HtmlBlock &block : htmlBlocks) {
            const auto start = block.start.match(line, from);
            if (start.hasMatch() &&
                line.indexOf(block.end, start.capturedEnd(), Qt::CaseInsensitive) < 0) {
                openHtml = &block;
                break;
            }
        }
    }
    QString result = text;
    while (result.endsWith(QLatin1Char('\n')))
        result.chop(1);
    if (openHtml)
        result += QLatin1Char('\n') + openHtml->end;
    else if (!openFence.isEmpty())
        result += QLatin1Char('\n') + openFence;
    return result;
}

QString ofThread(const CaptureSession &thread, const PictureLink &link)
{
    QString text = QStringLiteral("# ") + escaped(titleOf(thread)) + QLatin1Char('\n');
    const QList<ThreadEntry> entries = chronologicalEntries(thread);
    if (entries.isEmpty()) {
        for (const CaptureSession::Screenshot &screenshot : thread.screenshots)
            text += pictureMarkdown(screenshot, link);
    }
    QStringList answers;
    for (const ThreadEntry &entry : entries) {
        if (const auto *turn = std::get_if<CaptureSession::Turn>(&entry))
            answers.append(turn->response);
    }
    answers = answermarkdown::withOwnFootnotes(answermarkdown::withoutPictures(answers));
    for (const ThreadEntry &entry : entries) {
        text += QStringLiteral("\n---\n\n");
        if (const auto *note = std::get_if<CaptureSession::Note>(&entry)) {
            text += QStringLiteral("**Note** · %1\n\n").arg(dateText(note->createdAt)) +
                    quoted(escaped(note->text)) + QLatin1Char('\n');
            continue;
        }
        const auto &turn = std::get<CaptureSession::Turn>(entry);
        text += QStringLiteral("**Question** · %1\n").arg(dateText(turn.createdAt));
        if (const auto screenshot = screenshotOfTurn(thread, turn.id))
            text += pictureMarkdown(*screenshot, link);
        if (!turn.prompt.trimmed().isEmpty())
            text += QLatin1Char('\n') + quoted(escaped(turn.prompt)) + QLatin1Char('\n');
        text +=
            QStringLiteral("\n**Answer**\n\n") + closed(answers.takeFirst()) + QLatin1Char('\n');
    }
    return text;
}

} // namespace quellora::threadmarkdown
