#include "export/AnswerMarkdown.h"

#include <QHash>
#include <QRegularExpression>
#include <QSet>

#include <functional>
#include <utility>

namespace quellora::answermarkdown {

namespace {

using Expression = QRegularExpression;

/// A piece of an answer; code is not to be changed.
struct Piece
{
    QString text;
    bool isCode = false;
};

/// Splits a paragraph at its code spans: runs of equally many backticks enclose one.
void appendParagraph(QList<Piece> &pieces, const QString &text)
{
    // An escaped backtick begins no span, but may end one.
    static const Expression opening(QStringLiteral("\\\\.|(`+)"));
    qsizetype from = 0;
    qsizetype at = 0;
    for (;;) {
        const auto open = opening.match(text, at);
        if (!open.hasMatch())
            break;
        at = open.capturedEnd();
        if (open.captured(1).isEmpty())
            continue;
        const Expression closing(QStringLiteral("(?<!`)`{%1}(?!`)").arg(open.capturedLength()));
        const auto close = closing.match(text, at);
        if (!close.hasMatch())
            continue;
        pieces.append({text.mid(from, open.capturedStart() - from)});
        from = at = close.capturedEnd();
        pieces.append({text.mid(open.capturedStart(), from - open.capturedStart()), true});
    }
    pieces.append({text.mid(from)});
}

QList<Piece> piecesOf(const QString &answer)
{
    static const Expression fence(
        QStringLiteral("^([ \\t]*)(?:[*+>-][ \\t]+|\\d+[.)][ \\t]+)*(`{3,}(?=[^`]*$)|~{3,})"));
    static const Expression fenceEnd(QStringLiteral("^[ \\t>]*(`{3,}|~{3,})[ \\t]*$"));
    static const Expression listItem(QStringLiteral("^[ \\t]*(?:[*+-]|\\d+[.)])[ \\t]"));
    QList<Piece> pieces;
    QString paragraph;
    QString openFence;
    bool isInList = false;
    const QStringList lines = answer.split(QLatin1Char('\n'));
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString &line = lines.at(i);
        const QString whole = i + 1 < lines.size() ? line + QLatin1Char('\n') : line;
        if (!openFence.isEmpty()) {
            pieces.append({whole, true});
            const auto end = fenceEnd.match(line);
            if (end.hasMatch() && end.captured(1).startsWith(openFence))
                openFence.clear();
            continue;
        }
        if (listItem.match(line).hasMatch())
            isInList = true;
        else if (!line.isEmpty() && !line[0].isSpace() && paragraph.isEmpty())
            isInList = false;
        const auto match = fence.match(line);
        // Indented farther, it is a line of text or of code.
        if (match.hasMatch() && (isInList || match.captured(1).size() < 4)) {
            appendParagraph(pieces, std::exchange(paragraph, {}));
            pieces.append({whole, true});
            openFence = match.captured(2);
            continue;
        }
        paragraph += whole;
        if (line.trimmed().isEmpty())
            appendParagraph(pieces, std::exchange(paragraph, {}));
    }
    appendParagraph(pieces, paragraph);
    return pieces;
}

/// Applies a change to everything but code.
QString changed(const QString &answer, const std::function<QString(const QString &)> &change)
{
    QString result;
    for (const Piece &piece : piecesOf(answer))
        result += piece.isCode ? piece.text : change(piece.text);
    return result;
}

/// Replaces what an expression finds by what a function makes of it.
QString replaced(const QString &text, const Expression &expression,
                 const std::function<QString(const QRegularExpressionMatch &)> &replacement)
{
    QString result;
    qsizetype from = 0;
    for (auto all = expression.globalMatch(text); all.hasNext();) {
        const auto match = all.next();
        result += text.mid(from, match.capturedStart() - from) + replacement(match);
        from = match.capturedEnd();
    }
    return result + text.mid(from);
}

QString labelKey(const QString &label)
{
    return label.simplified().toCaseFolded();
}

/// Labels of the definitions of link addresses.
QSet<QString> linkLabels(const QStringList &answers)
{
    static const Expression definition(
        QStringLiteral(
            "^[ \\t>]*(?:[*+-][ \\t]+|\\d+[.)][ \\t]+)*\\[((?:[^\\[\\]\\\\]|\\\\.)+)\\]:"),
        Expression::MultilineOption);
    QSet<QString> labels;
    for (const QString &answer : answers) {
        for (const Piece &piece : piecesOf(answer)) {
            for (auto all = definition.globalMatch(piece.text); !piece.isCode && all.hasNext();)
                labels.insert(labelKey(all.next().captured(1)));
        }
    }
    return labels;
}

/// A footnote's mark, or the beginning of its note: as on the page.
const Expression &footnoteLabel()
{
    static const Expression label(QStringLiteral("(?<!\\\\)\\[\\^([^\\]\\s\\[^]{1,40})\\](?!\\()"));
    return label;
}

const Expression &footnoteNote()
{
    static const Expression note(QStringLiteral("^ {0,3}\\[\\^([^\\]\\s\\[^]{1,40})\\]:[ \\t]+\\S"),
                                 Expression::MultilineOption);
    return note;
}

QSet<QString> labelsIn(const QString &answer, const Expression &expression)
{
    QSet<QString> labels;
    for (const Piece &piece : piecesOf(answer)) {
        for (auto all = expression.globalMatch(piece.text); !piece.isCode && all.hasNext();)
            labels.insert(labelKey(all.next().captured(1)));
    }
    return labels;
}

} // namespace

QStringList withoutPictures(const QStringList &answers)
{
    // Brackets may stand in a description in pairs. What is no whole picture here, may be one
    // together with the code beside it.
    static const Expression picture(QStringLiteral(
        "(?<!\\\\)((?:\\\\\\\\)*)!(?:"
        "(\\[((?:[^\\[\\]\\\\]|\\\\.|\\[(?:[^\\[\\]\\\\]|\\\\.|\\[[^\\[\\]]*\\])*\\])*)\\])"
        "(\\(|\\[((?:[^\\[\\]\\\\]|\\\\.)*)\\])?|\\[)"));
    static const Expression pictureInLink(
        QStringLiteral("\\[!\\[([^\\[\\]]*)\\]\\([^()\\s]*\\)\\](?=[\\[(])"));
    // Elements that fetch something, and any element with an attribute that does.
    static const Expression element(
        QStringLiteral(
            "\\\\?<(?=(?:img|image|picture|source|track|video|audio|iframe|frame|embed"
            "|object|link|script|style|svg|input|base|meta|portal|param|applet)(?![\\w-])"
            "|[a-z](?:\"[^\"]*\"|'[^']*'|[^<>\"'])*?[\\s/\"'](?:src|srcset|poster"
            "|background|style|data|ping|xlink:href)\\s*=)"),
        Expression::CaseInsensitiveOption);
    const QSet<QString> links = linkLabels(answers);
    const auto link = [&](const QRegularExpressionMatch &match) -> QString {
        const QString before = match.captured(1);
        const QString words = match.captured(3);
        const QString target = match.captured(4);
        if (match.captured(2).isEmpty())
            return before + QStringLiteral("!\\[");
        const bool isInline = target == QLatin1Char('(');
        const QString label = match.captured(5).isEmpty() ? words : match.captured(5);
        if (!isInline && !links.contains(labelKey(label)) && !links.contains(labelKey(words)))
            return match.captured();
        // It would be a footnote's mark.
        if (words.startsWith(QLatin1Char('^')))
            return before + QStringLiteral("\\!") + match.captured(2) + target;
        return before +
               (words.trimmed().isEmpty() ? QStringLiteral("[Picture]") : match.captured(2)) +
               target;
    };
    QStringList result;
    for (const QString &answer : answers) {
        result.append(changed(answer, [&](const QString &text) {
            QString inert = replaced(text, pictureInLink, [](const QRegularExpressionMatch &match) {
                const QString words = match.captured(1);
                return QStringLiteral("[%1]").arg(
                    words.trimmed().isEmpty() ? QStringLiteral("Picture") : words);
            });
            // A description may contain further pictures.
            for (QString before; before != inert;) {
                before = inert;
                inert = replaced(before, picture, link);
            }
            return inert.replace(element, QStringLiteral("&lt;"));
        }));
    }
    return result;
}

QStringList withOwnFootnotes(const QStringList &answers)
{
    QHash<QString, int> uses;
    for (const QString &answer : answers) {
        for (const QString &label : labelsIn(answer, footnoteLabel()))
            ++uses[label];
    }
    QStringList result;
    for (qsizetype i = 0; i < answers.size(); ++i) {
        const QSet<QString> notes = labelsIn(answers.at(i), footnoteNote());
        const auto ownLabel = [&](const QString &label) {
            QString own = QStringLiteral("%1-%2").arg(i + 1).arg(label);
            while (uses.contains(labelKey(own)))
                own.prepend(QLatin1Char('a'));
            return own;
        };
        result.append(changed(answers.at(i), [&](const QString &text) {
            return replaced(text, footnoteLabel(), [&](const QRegularExpressionMatch &match) {
                const QString label = match.captured(1);
                if (uses.value(labelKey(label)) < 2)
                    return match.captured();
                return notes.contains(labelKey(label))
                           ? QStringLiteral("[^%1]").arg(ownLabel(label))
                           : QLatin1Char('\\') + match.captured();
            });
        }));
    }
    return result;
}

} // namespace quellora::answermarkdown
