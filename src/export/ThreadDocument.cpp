#include "export/ThreadDocument.h"

#include "export/ExportFiles.h"
#include "export/ThreadMarkdown.h"
#include "page/ResponsePage.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

namespace quellora::threaddocument {

namespace {

using responsepage::escapedForHtml;

QByteArray resource(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("bundled file %s is missing", qUtf8Printable(path));
    return file.readAll();
}

QByteArray fontFace(const QByteArray &family, const QByteArray &weight, const QByteArray &style,
                    const QString &file)
{
    return "@font-face{font-family:\"" + family + "\";font-weight:" + weight +
           ";font-style:" + style + ";src:url(data:font/woff2;base64," + resource(file).toBase64() +
           ") format(\"woff2\")}\n";
}

/// The typesetter's rules with its fonts.
QByteArray formulaRules()
{
    QByteArray rules;
    const QFileInfoList fonts =
        QDir(QStringLiteral(":/quellora/math-fonts")).entryInfoList(QDir::Files, QDir::Name);
    for (const QFileInfo &font : fonts) {
        const QByteArrayList name = font.completeBaseName().toLatin1().split('-');
        const QByteArray kind = name.value(1);
        rules += fontFace(name.value(0), kind.contains("Bold") ? "700" : "400",
                          kind.contains("Italic") ? "italic" : "normal", font.filePath());
    }
    // The rules' own fonts are files beside them.
    static const QRegularExpression fontRules(QStringLiteral("@font-face\\{[^}]*\\}"));
    return rules + QString::fromUtf8(resource(QStringLiteral(":/quellora/page/katex.min.css")))
                       .remove(fontRules)
                       .toUtf8();
}

QByteArray rules(bool hasFormulas)
{
    const QString fonts = QStringLiteral(":/quellora/fonts/");
    QByteArray css =
        fontFace("Inter", "400", "normal", fonts + QStringLiteral("inter-400.woff2")) +
        fontFace("Inter", "600 900", "normal", fonts + QStringLiteral("inter-600.woff2")) +
        fontFace("JetBrains Mono", "100 900", "normal", fonts + QStringLiteral("mono-400.woff2"));
    if (hasFormulas)
        css += formulaRules();
    css += resource(QStringLiteral(":/quellora/page/github.min.css"));
    css += "\n@media screen and (prefers-color-scheme:dark){" +
           resource(QStringLiteral(":/quellora/page/github-dark.min.css")) + "}\n";
    return css + resource(QStringLiteral(":/quellora/export/document.css"));
}

QByteArray head(const QByteArray &css, const QString &title, bool hasFormulas)
{
    const QByteArray hash = QCryptographicHash::hash(css, QCryptographicHash::Sha256).toBase64();
    // Formulas have their sizes in style attributes; these cannot fetch anything either.
    return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
           "'sha256-" +
           hash + "'" + (hasFormulas ? "; style-src-attr 'unsafe-inline'" : "") +
           "; img-src data:; font-src data:; base-uri 'none'; form-action 'none'\">\n"
           "<meta name=\"referrer\" content=\"no-referrer\">\n"
           "<meta http-equiv=\"x-dns-prefetch-control\" content=\"off\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"color-scheme\" content=\"light dark\">\n"
           "<link rel=\"icon\" href=\"data:,\">\n<title>" +
           escapedForHtml(title).toUtf8() + "</title>\n<style>" + css + "</style></head>\n<body>\n";
}

QByteArray picture(const CaptureSession::Screenshot &screenshot)
{
    const QString suffix = ExportFiles::pictureSuffix(screenshot.imageData);
    const QByteArray type =
        suffix == QStringLiteral("jpg") ? QByteArrayLiteral("jpeg") : suffix.toLatin1();
    return "<p class=\"picture\"><img alt=\"Screenshot " +
           QByteArray::number(screenshot.index + 1) + "\" src=\"data:image/" + type + ";base64," +
           screenshot.imageData.toBase64() + "\"></p>\n";
}

QByteArray heading(const char *words, const QDateTime &time)
{
    return QByteArray("<p class=\"heading\"><b>") + words + "</b> <time datetime=\"" +
           time.toUTC().toString(Qt::ISODate).toLatin1() + "\">" +
           threadmarkdown::dateText(time).toUtf8() + "</time></p>\n";
}

/// The number of a turn in its thread.
qsizetype numberOf(const CaptureSession::Turn &turn, const CaptureSession &thread)
{
    return thread.turns.indexOf(turn);
}

/// A text with its lines, where no rules apply.
QString linesForPasting(const QString &text)
{
    return QStringLiteral("<blockquote style=\"border-left:3px solid #1c6ad0;margin-left:0;"
                          "padding-left:10px;white-space:pre-wrap\">") +
           escapedForHtml(text).replace(QLatin1Char('\n'), QStringLiteral("<br>")) +
           QStringLiteral("</blockquote>\n");
}

} // namespace

QByteArray ofThread(const CaptureSession &thread, const RenderedAnswers &answers)
{
    const QString title = threadmarkdown::titleOf(thread);
    QByteArray page = head(rules(answers.hasFormulas), title, answers.hasFormulas);
    page += "<main>\n<h1 class=\"title\">" + escapedForHtml(title).toUtf8() + "</h1>\n";
    const QList<ThreadEntry> entries = chronologicalEntries(thread);
    if (entries.isEmpty()) {
        for (const CaptureSession::Screenshot &screenshot : thread.screenshots)
            page += picture(screenshot);
    }
    for (const ThreadEntry &entry : entries) {
        if (const auto *note = std::get_if<CaptureSession::Note>(&entry)) {
            page += "<section class=\"note\">\n" + heading("Note", note->createdAt) +
                    "<div class=\"typed\">" + escapedForHtml(note->text).toUtf8() +
                    "</div>\n</section>\n";
            continue;
        }
        const auto &turn = std::get<CaptureSession::Turn>(entry);
        page += "<section class=\"turn\">\n<div class=\"question\">\n" +
                heading("Question", turn.createdAt);
        if (const auto screenshot = screenshotOfTurn(thread, turn.id))
            page += picture(*screenshot);
        if (!turn.prompt.trimmed().isEmpty())
            page += "<div class=\"typed\">" + escapedForHtml(turn.prompt).toUtf8() + "</div>\n";
        page += "</div>\n<div class=\"answer\">\n" +
                answers.html.value(numberOf(turn, thread)).toUtf8() + "\n</div>\n</section>\n";
    }
    return page + "</main>\n</body></html>\n";
}

QString forPasting(const CaptureSession &thread, const QStringList &answers)
{
    QString html = QStringLiteral("<h1>") + escapedForHtml(threadmarkdown::titleOf(thread)) +
                   QStringLiteral("</h1>\n");
    const auto caption = [](const char *words, const QDateTime &time) {
        return QStringLiteral("<p><b>%1</b> · %2</p>\n")
            .arg(QLatin1StringView(words), threadmarkdown::dateText(time));
    };
    for (const ThreadEntry &entry : chronologicalEntries(thread)) {
        if (const auto *note = std::get_if<CaptureSession::Note>(&entry)) {
            html += caption("Note", note->createdAt) + linesForPasting(note->text);
            continue;
        }
        const auto &turn = std::get<CaptureSession::Turn>(entry);
        html += caption("Question", turn.createdAt);
        if (!turn.prompt.trimmed().isEmpty())
            html += linesForPasting(turn.prompt);
        html += QStringLiteral("<p><b>Answer</b></p>\n") + answers.value(numberOf(turn, thread)) +
                QLatin1Char('\n');
    }
    return html;
}

} // namespace quellora::threaddocument
