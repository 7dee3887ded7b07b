#include "page/ResponsePage.h"

#include "page/PageAddresses.h"
#include "page/PageStyle.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>

#include <algorithm>
#include <initializer_list>

namespace quellora::responsepage {

namespace {

constexpr QByteArrayView divider = "<div class=\"divider\"></div>";

/// The only style attribute that a page has.
constexpr QByteArrayView dotsStyle = "display:flex; gap:6px; padding:4px 0;";

constexpr QByteArrayView headStart = "<!DOCTYPE html><html><head><meta charset=\"utf-8\">\n";
constexpr QByteArrayView pageEnd = "</body></html>";

/// An answer and the element that shows it.
struct Response
{
    QByteArray elementId;
    QString markdown;
};

QByteArray scriptElement(QByteArrayView address)
{
    return "<script src=\"" + address.toByteArray() + "\"></script>";
}

/// A policy's source expression for exactly this text.
QByteArray hashSource(QByteArrayView text)
{
    return "'sha256-" + QCryptographicHash::hash(text, QCryptographicHash::Sha256).toBase64() +
           '\'';
}

/// Start of a page with the rules @p css. The policy allows nothing but what is listed here; the
/// content delivery addresses are served from the bundled assets.
QByteArray headWithPolicy(QByteArrayView css)
{
    const auto sources = [](std::initializer_list<QByteArrayView> addresses) {
        QByteArray list;
        for (const QByteArrayView address : addresses)
            list += ' ' + address.toByteArray();
        return list;
    };
    return headStart.toByteArray() +
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src" +
           sources({pageaddress::highlightScript, pageaddress::markedScript, pageaddress::assets}) +
           "; style-src " + hashSource(css) +
           sources({pageaddress::darkCodeStyle, pageaddress::lightCodeStyle, pageaddress::assets}) +
           "; style-src-attr 'unsafe-hashes' " + hashSource(dotsStyle) + "; img-src " +
           pageaddress::pages.toByteArray() + "; base-uri 'none'; form-action 'none'\">\n";
}

/// Text in quotes, as data inside the page.
QByteArray jsonString(const QString &text)
{
    return '"' + escapedForJson(text).toUtf8() + '"';
}

QByteArrayView codeStyleAddress(AppTheme theme)
{
    return theme == AppTheme::Dark ? pageaddress::darkCodeStyle : pageaddress::lightCodeStyle;
}

/// The page's data and the script that shows it.
QByteArray dataAndScript(const QByteArray &json)
{
    return "<script type=\"application/json\" id=\"page-data\">" + json + "</script>\n" +
           scriptElement(pageaddress::pageScript);
}

/// Code style, highlighter and Markdown renderer.
QByteArray headResources(AppTheme theme)
{
    return "<link id=\"hljs-theme\" rel=\"stylesheet\" href=\"" +
           codeStyleAddress(theme).toByteArray() + "\">" +
           scriptElement(pageaddress::highlightScript) + scriptElement(pageaddress::markedScript) +
           '\n';
}

/// The rules of every page, with page-specific rules @p before and @p after the user's settings.
QByteArray rules(const PageAppearance &appearance, QByteArrayView before, QByteArrayView after)
{
    QByteArray style = pagestyle::base.toByteArray() + before.toByteArray() + '\n';
    if (appearance.textColorHex)
        style += ":root{--text:" + appearance.textColorHex->toUtf8() + '}';
    style += "\n:root{--pill-alpha:" + shortestDecimal(pillAlpha(appearance.alpha)).toUtf8() +
             ";--code-alpha:" + shortestDecimal(codeAlpha(appearance.alpha)).toUtf8() + "}\n";
    return style + after.toByteArray() + pagestyle::details.toByteArray() +
           pagestyle::blocks.toByteArray();
}

/// Everything up to the body's first element.
QByteArray pageStart(const PageAppearance &appearance, const QByteArray &resources,
                     const QByteArray &css)
{
    return headWithPolicy(css) + resources + "<style>" + css + "</style></head><body class=\"" +
           (appearance.theme == AppTheme::Light ? "light" : "") + "\">";
}

QByteArray timestampHTML(const QByteArray &content)
{
    return "<div class=\"entry-timestamp\">" + content + "</div>";
}

QByteArray timestampHTML(const QDateTime &time)
{
    return timestampHTML(threadTimestamp(time).toUtf8());
}

/// A button that puts another version of a turn on show; disabled where there is none.
QByteArray versionButtonHTML(const CaptureSession::Turn &turn, qsizetype position,
                             QByteArrayView name, QByteArrayView icon)
{
    const bool isThere = position >= 0 && position < turn.versionCount();
    return "<button class=\"version\" aria-label=\"" + name.toByteArray() + "\" data-turn=\"" +
           uuidText(turn.id).toLatin1() + "\" data-version=\"" + QByteArray::number(position) +
           (isThere ? "\">" : "\" disabled>") + icon.toByteArray() + "</button>";
}

/// The time of a turn and, if it has several versions, which one is on show.
QByteArray turnTimeHTML(const CaptureSession::Turn &turn)
{
    QByteArray html = threadTimestamp(turn.createdAt).toUtf8();
    if (turn.versionCount() == 1)
        return html;
    return html + "<span class=\"versions\">" +
           versionButtonHTML(turn, turn.shownVersion - 1, "Earlier version", "\u2039") +
           QByteArray::number(turn.shownVersion + 1) + " of " +
           QByteArray::number(turn.versionCount()) +
           versionButtonHTML(turn, turn.shownVersion + 1, "Later version", "\u203a") + "</span>";
}

/// Image element of a screenshot.
/// @param sourceAttribute "src", or "data-src" where the page's script fetches it when it comes
/// near
QByteArray thumbnailHTML(const CaptureSession::Screenshot &screenshot, QByteArrayView cssClass,
                         QByteArrayView sourceAttribute, const PictureAddress &address)
{
    const QByteArray index = QByteArray::number(screenshot.index);
    return "<img class=\"" + cssClass.toByteArray() + "\" " + sourceAttribute.toByteArray() +
           "=\"" + escapedForHtml(address(screenshot)).toUtf8() + "\" alt=\"Screenshot " +
           QByteArray::number(screenshot.index + 1) +
           "\" role=\"button\" tabindex=\"0\" data-picture=\"" + index + "\">";
}

QByteArray turnPromptHTML(const QString &prompt,
                          const std::optional<CaptureSession::Screenshot> &screenshot,
                          const PictureAddress &address)
{
    QByteArray html = "<div class=\"turn-prompt\">";
    if (screenshot)
        html += thumbnailHTML(*screenshot, "thumb", "data-src", address);
    return html + "<div class=\"prompt-text truncatable\">" + escapedForHtml(prompt).toUtf8() +
           "</div></div>";
}

QByteArray responseElementId(const CaptureSession::Turn &turn)
{
    return "resp-" + uuidText(turn.id).toLatin1();
}

/// A thread page from its entries and answers.
QByteArray pageOfEntries(const QByteArray &entriesHtml, const QList<Response> &responses,
                         const PageAppearance &appearance)
{
    QByteArray pairs;
    for (const Response &response : responses) {
        if (!pairs.isEmpty())
            pairs += ',';
        pairs += '"' + response.elementId + "\":" + jsonString(response.markdown);
    }

    QByteArray page = pageStart(appearance, headResources(appearance.theme),
                                rules(appearance, pagestyle::thread, {}));
    page.reserve(page.size() + entriesHtml.size() + pairs.size() + 1024);
    page += "<div id=\"ct\">";
    page += entriesHtml;
    page += "</div>\n";
    page += dataAndScript("{\"responses\":{" + pairs + "}}");
    page += pageEnd;
    return page;
}

/// Entries with dividers between them; fills @p responses.
/// @param replaced a turn that @p replacement takes the place of
QByteArray entriesHTML(const CaptureSession &session, const PictureAddress &address,
                       QList<Response> &responses, const QUuid &replaced = {},
                       const QByteArray &replacement = {})
{
    QByteArray html;
    for (const ThreadEntry &entry : chronologicalEntries(session)) {
        if (!html.isEmpty())
            html += divider;
        const auto *turn = std::get_if<CaptureSession::Turn>(&entry);
        if (turn && turn->id == replaced) {
            html += replacement;
            continue;
        }
        html += entryBodyHTML(entry, session, address);
        if (turn)
            responses.append({responseElementId(*turn), turn->response});
    }
    return html;
}

} // namespace

QString escapedForJson(const QString &text)
{
    // Not QJsonDocument: it would lose the half of a surrogate pair that two pieces share.
    const auto isHalf = [&text](qsizetype i) {
        return text[i].isHighSurrogate()
                   ? i + 1 == text.size() || !text[i + 1].isLowSurrogate()
                   : text[i].isLowSurrogate() && (i == 0 || !text[i - 1].isHighSurrogate());
    };
    QString escaped;
    escaped.reserve(text.size() + text.size() / 16);
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == QLatin1Char('"') || c == QLatin1Char('\\')) {
            escaped += QLatin1Char('\\');
            escaped += c;
        } else if (c == QLatin1Char('\n')) {
            escaped += QLatin1StringView("\\n");
        } else if (c < QLatin1Char(' ') || c == QLatin1Char('<') || c == QChar::LineSeparator ||
                   c == QChar::ParagraphSeparator || isHalf(i)) {
            escaped += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        } else {
            escaped += c;
        }
    }
    return escaped;
}

QString escapedForHtml(const QString &text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('&'), QLatin1StringView("&amp;"));
    escaped.replace(QLatin1Char('<'), QLatin1StringView("&lt;"));
    escaped.replace(QLatin1Char('>'), QLatin1StringView("&gt;"));
    escaped.replace(QLatin1Char('"'), QLatin1StringView("&quot;"));
    escaped.replace(QLatin1Char('\''), QLatin1StringView("&#39;"));
    return escaped;
}

QString shortestDecimal(double value)
{
    return QString::number(value, 'f', QLocale::FloatingPointShortest);
}

QString defaultDecimal(double value)
{
    const QString text = shortestDecimal(value);
    return text.contains(QLatin1Char('.')) ? text : text + QStringLiteral(".0");
}

double pillAlpha(double windowAlpha)
{
    return (1 - std::clamp(windowAlpha, 0.0, 1.0)) * 0.72;
}

double codeAlpha(double windowAlpha)
{
    return std::max(pillAlpha(windowAlpha), 0.15);
}

QString threadTimestamp(const QDateTime &time)
{
    static const QLocale english(QLocale::English, QLocale::UnitedStates);
    return english.toString(time.toLocalTime(), QStringLiteral("MMM d, h:mm AP"));
}

QString hintEnd(const QString &answererName)
{
    return QStringLiteral(" to capture screen → ") + answererName +
           QStringLiteral(" responds here");
}

QString thinkingText(const QString &answererName)
{
    return QStringLiteral("⏳ ") + answererName + QStringLiteral(" is thinking...");
}

QByteArray singleAnswerPage(const QString &markdown, const PageAppearance &appearance)
{
    QByteArray page = pageStart(appearance, headResources(appearance.theme),
                                rules(appearance, {}, pagestyle::singleAnswer));
    page += "<div id=\"ct\"></div>\n<div id=\"ph\">Hit <kbd>";
    page += escapedForHtml(appearance.captureHotkey).toUtf8();
    page += "</kbd>" + escapedForHtml(hintEnd(appearance.answererName)).toUtf8() +
            "</div>\n<div id=\"ld\">" +
            escapedForHtml(thinkingText(appearance.answererName)).toUtf8() + "</div>\n";
    page += dataAndScript("{\"raw\":" + jsonString(markdown) + '}');
    page += pageEnd;
    return page;
}

QByteArray screenshotOnlyPage(const CaptureSession &session, const PageAppearance &appearance,
                              const PictureAddress &address)
{
    QByteArray page = pageStart(appearance, {}, rules(appearance, {}, pagestyle::screenshotOnly));
    page += "<div id=\"ct\">";
    for (const CaptureSession::Screenshot &screenshot : session.screenshots)
        page += thumbnailHTML(screenshot, "thumb thumb-empty", "src", address);
    page += QStringLiteral("</div>\n<div id=\"empty-note\">Screenshot only — no notes or AI turns "
                           "yet.</div>\n")
                .toUtf8();
    page += pageEnd;
    return page;
}

QByteArray threadPage(const CaptureSession &session, const PageAppearance &appearance,
                      const PictureAddress &address)
{
    QList<Response> responses;
    const QByteArray entries = entriesHTML(session, address, responses);
    return pageOfEntries(entries, responses, appearance);
}

QByteArray streamingShellPage(const std::optional<CaptureSession> &session, const QString &prompt,
                              const QDateTime &queryStart,
                              const std::optional<CaptureSession::Screenshot> &screenshot,
                              const PageAppearance &appearance, const PictureAddress &address,
                              const QUuid &replaced)
{
    const CaptureSession thread = session.value_or(CaptureSession{});
    const QByteArray question =
        "<div class=\"entry turn-entry\">" + timestampHTML(queryStart) +
        turnPromptHTML(prompt, screenshot, address) + "<div class=\"turn-response\" id=\"" +
        streamingElementId + "\"><div id=\"loading\" style=\"" + dotsStyle.toByteArray() +
        "\"><div class=\"dot\"></div><div class=\"dot\"></div><div class=\"dot\"></div></div>"
        "</div></div>";
    QList<Response> responses;
    QByteArray entries = entriesHTML(thread, address, responses, replaced, question);
    if (!thread.findTurn(replaced))
        entries += (entries.isEmpty() ? QByteArray() : divider.toByteArray()) + question;
    return pageOfEntries(entries, responses, appearance);
}

QByteArray entryBodyHTML(const ThreadEntry &entry, const CaptureSession &session,
                         const PictureAddress &address)
{
    if (const auto *note = std::get_if<CaptureSession::Note>(&entry)) {
        return "<div class=\"entry note-entry\">" + timestampHTML(note->createdAt) +
               "<button class=\"note-delete\" aria-label=\"Delete note\" data-note=\"" +
               uuidText(note->id).toLatin1() + "\">" + QStringLiteral("×").toUtf8() +
               "</button><div class=\"note-body\"><div class=\"note-text truncatable\">" +
               escapedForHtml(note->text).toUtf8() + "</div></div></div>";
    }
    const auto &turn = std::get<CaptureSession::Turn>(entry);
    return "<div class=\"entry turn-entry\">" + timestampHTML(turnTimeHTML(turn)) +
           turnPromptHTML(turn.prompt, screenshotOfTurn(session, turn.id), address) +
           "<div class=\"turn-response\" id=\"" + responseElementId(turn) + "\"></div></div>";
}

QString themeScript(const PageAppearance &appearance)
{
    const QString color = appearance.textColorHex
                              ? QStringLiteral("document.documentElement.style.setProperty("
                                               "'--text', '%1');")
                                    .arg(*appearance.textColorHex)
                              : QStringLiteral("document.documentElement.style.removeProperty("
                                               "'--text');");
    return color +
           QStringLiteral("document.body.className = '%1';"
                          "(function(){var link=document.getElementById('hljs-theme');"
                          "if(link){link.href='%2';}})();")
               .arg(appearance.theme == AppTheme::Light ? QStringLiteral("light") : QString(),
                    QLatin1StringView(codeStyleAddress(appearance.theme)));
}

QString hintScript(const PageAppearance &appearance)
{
    // As JSON they are valid script literals whatever they contain.
    const QJsonArray texts{appearance.captureHotkey, hintEnd(appearance.answererName),
                           thinkingText(appearance.answererName)};
    return QStringLiteral("(function(texts){var key=document.querySelector('#ph kbd');"
                          "if(key){key.textContent=texts[0];key.nextSibling.textContent=texts[1];"
                          "document.getElementById('ld').textContent=texts[2];}})(") +
           QString::fromUtf8(QJsonDocument(texts).toJson(QJsonDocument::Compact)) +
           QStringLiteral(");");
}

QString pillAlphaScript(double windowAlpha)
{
    return QStringLiteral("document.documentElement.style.setProperty('--pill-alpha', '%1');"
                          "document.documentElement.style.setProperty('--code-alpha', '%2');")
        .arg(shortestDecimal(pillAlpha(windowAlpha)), shortestDecimal(codeAlpha(windowAlpha)));
}

QString hideLoadingScript()
{
    return QStringLiteral("document.getElementById('loading').style.display='none';");
}

QString streamAppendScript(const QString &text)
{
    return QStringLiteral("answers.append(\"") + escapedForJson(text) + QStringLiteral("\");");
}

QString streamFinishScript()
{
    return QStringLiteral("answers.finish();");
}

QString streamedTurnScript(const CaptureSession::Turn &turn)
{
    return QStringLiteral("(function(slot){slot.id=\"%1\";slot.parentNode.querySelector("
                          "'.entry-timestamp').innerHTML=\"%2\";})"
                          "(document.getElementById('%3'));")
        .arg(QLatin1StringView(responseElementId(turn)),
             escapedForJson(QString::fromUtf8(turnTimeHTML(turn))),
             QLatin1StringView(streamingElementId));
}

QString scrollByScript(double pixels)
{
    return QStringLiteral("document.body.scrollBy(0, %1);").arg(defaultDecimal(pixels));
}

QString scrollToFractionScript(double fraction)
{
    return QStringLiteral("(function(){var extent=Math.max(1, document.body.scrollHeight-"
                          "document.body.clientHeight); document.body.scrollTop = extent * %1;"
                          "})();")
        .arg(defaultDecimal(fraction));
}

} // namespace quellora::responsepage
