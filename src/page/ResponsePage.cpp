#include "page/ResponsePage.h"

#include "base/Log.h"
#include "page/PageAddresses.h"
#include "page/PageStyle.h"

#include <QCryptographicHash>

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

/// A policy's source expression for this very text.
QByteArray hashSource(QByteArrayView text)
{
    return "'sha256-" + QCryptographicHash::hash(text, QCryptographicHash::Sha256).toBase64() +
           '\'';
}

/// Start of a page with the rules @p css: nothing is loaded, run or styled but what is named here.
/// The bundled assets stand for the addresses of the content delivery.
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
           "; style-src-attr 'unsafe-hashes' " + hashSource(dotsStyle) +
           "; img-src data:; base-uri 'none'; form-action 'none'\">\n";
}

/// Text in quotes, as data inside the page.
QByteArray jsonString(const QString &text)
{
    return '"' + escapedForJson(text).toUtf8() + '"';
}

/// What the page shows, and the script that shows it.
QByteArray dataAndScript(const QByteArray &json)
{
    return "<script type=\"application/json\" id=\"page-data\">" + json + "</script>\n" +
           scriptElement(pageaddress::pageScript);
}

/// Code style, highlighter and Markdown renderer.
QByteArray headResources(AppTheme theme)
{
    const QByteArrayView style =
        theme == AppTheme::Dark ? pageaddress::darkCodeStyle : pageaddress::lightCodeStyle;
    return "<link id=\"hljs-theme\" rel=\"stylesheet\" href=\"" + style.toByteArray() + "\">" +
           scriptElement(pageaddress::highlightScript) + scriptElement(pageaddress::markedScript) +
           '\n';
}

/// The rules that every page has, with @p before and @p after in their places.
QByteArray rules(const PageAppearance &appearance, QByteArrayView before, QByteArrayView after)
{
    QByteArray style = pagestyle::base.toByteArray() + before.toByteArray() + '\n';
    if (appearance.textColorHex)
        style += ":root{--text:" + appearance.textColorHex->toUtf8() + '}';
    style += "\n:root{--pill-alpha:" + shortestDecimal(pillAlpha(appearance.alpha)).toUtf8() +
             ";--code-alpha:" + shortestDecimal(codeAlpha(appearance.alpha)).toUtf8() + "}\n";
    return style + after.toByteArray() + pagestyle::details.toByteArray();
}

/// Everything up to the body's first element.
QByteArray pageStart(const PageAppearance &appearance, const QByteArray &resources,
                     const QByteArray &css)
{
    return headWithPolicy(css) + resources + "<style>" + css + "</style></head><body class=\"" +
           (appearance.theme == AppTheme::Light ? "light" : "") + "\">";
}

QByteArray timestampHTML(const QDateTime &time)
{
    return "<div class=\"entry-timestamp\">" + threadTimestamp(time).toUtf8() + "</div>";
}

QByteArray turnPromptHTML(const QString &prompt,
                          const std::optional<CaptureSession::Screenshot> &screenshot,
                          const CaptureSession &session, const PreviewPath &previewPath)
{
    QByteArray html = "<div class=\"turn-prompt\">";
    if (screenshot)
        html += thumbnailHTML(*screenshot, session, "thumb", previewPath);
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
QByteArray entriesHTML(const CaptureSession &session, const PreviewPath &previewPath,
                       QList<Response> &responses)
{
    QByteArray html;
    for (const ThreadEntry &entry : chronologicalEntries(session)) {
        if (!html.isEmpty())
            html += divider;
        html += entryBodyHTML(entry, session, previewPath);
        if (const auto *turn = std::get_if<CaptureSession::Turn>(&entry))
            responses.append({responseElementId(*turn), turn->response});
    }
    return html;
}

} // namespace

QString hintEnd(const QString &answererName)
{
    return QStringLiteral(" to capture screen → ") + answererName +
           QStringLiteral(" responds here");
}

QString thinkingText(const QString &answererName)
{
    return QStringLiteral("⏳ ") + answererName + QStringLiteral(" is thinking...");
}

std::optional<CaptureSession::Screenshot> screenshotOfTurn(const CaptureSession &session,
                                                           const QUuid &turnId)
{
    QDateTime previousEnd;
    for (const CaptureSession::Turn &turn : session.turns) {
        if (turn.id != turnId) {
            previousEnd = turn.createdAt;
            continue;
        }
        std::optional<CaptureSession::Screenshot> found;
        for (const CaptureSession::Screenshot &screenshot : session.screenshots) {
            const bool isInTime = (!previousEnd.isValid() || screenshot.capturedAt > previousEnd) &&
                                  screenshot.capturedAt <= turn.createdAt;
            if (turn.screenshot ? turn.screenshot->index == screenshot.index : isInTime)
                found = screenshot;
        }
        return found;
    }
    return std::nullopt;
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
                              const PreviewPath &previewPath)
{
    QByteArray page = pageStart(appearance, {}, rules(appearance, {}, pagestyle::screenshotOnly));
    page += "<div id=\"ct\">";
    for (const CaptureSession::Screenshot &screenshot : session.screenshots)
        page += thumbnailHTML(screenshot, session, "thumb thumb-empty", previewPath);
    page += QStringLiteral("</div>\n<div id=\"empty-note\">Screenshot only — no notes or AI turns "
                           "yet.</div>\n")
                .toUtf8();
    page += pageEnd;
    return page;
}

QByteArray threadPage(const CaptureSession &session, const PageAppearance &appearance,
                      const PreviewPath &previewPath)
{
    QList<Response> responses;
    const QByteArray entries = entriesHTML(session, previewPath, responses);
    return pageOfEntries(entries, responses, appearance);
}

QByteArray streamingShellPage(const std::optional<CaptureSession> &session, const QString &prompt,
                              const QDateTime &queryStart,
                              const std::optional<CaptureSession::Screenshot> &screenshot,
                              const PageAppearance &appearance, const PreviewPath &previewPath)
{
    const CaptureSession thread = session.value_or(CaptureSession{});
    QList<Response> responses;
    QByteArray entries = entriesHTML(thread, previewPath, responses);
    if (!entries.isEmpty())
        entries += divider;
    entries += "<div class=\"entry turn-entry\">" + timestampHTML(queryStart) +
               turnPromptHTML(prompt, screenshot, thread, previewPath) +
               "<div class=\"turn-response\" id=\"" + streamingElementId + "\">";
    entries +=
        "<div id=\"loading\" style=\"" + dotsStyle.toByteArray() +
        "\"><div class=\"dot\"></div><div class=\"dot\"></div><div class=\"dot\"></div></div>";
    entries += "</div></div>";
    return pageOfEntries(entries, responses, appearance);
}

QByteArray entryBodyHTML(const ThreadEntry &entry, const CaptureSession &session,
                         const PreviewPath &previewPath)
{
    if (const auto *note = std::get_if<CaptureSession::Note>(&entry)) {
        return "<div class=\"entry note-entry\">" + timestampHTML(note->createdAt) +
               "<button class=\"note-delete\" aria-label=\"Delete note\" data-note=\"" +
               uuidText(note->id).toLatin1() + "\">" + QStringLiteral("×").toUtf8() +
               "</button><div class=\"note-body\"><div class=\"note-text truncatable\">" +
               escapedForHtml(note->text).toUtf8() + "</div></div></div>";
    }
    const auto &turn = std::get<CaptureSession::Turn>(entry);
    return "<div class=\"entry turn-entry\">" + timestampHTML(turn.createdAt) +
           turnPromptHTML(turn.prompt, screenshotOfTurn(session, turn.id), session, previewPath) +
           "<div class=\"turn-response\" id=\"" + responseElementId(turn) + "\"></div></div>";
}

QByteArray thumbnailHTML(const CaptureSession::Screenshot &screenshot,
                         const CaptureSession &session, QByteArrayView cssClass,
                         const PreviewPath &previewPath)
{
    const std::optional<QString> path = previewPath(screenshot, session);
    if (!path) {
        Log::event(QStringLiteral("[OverlayWindowController] renderThread: dropping thumbnail for "
                                  "screenshot %1 in session %2 — tempFileURL failed, see prior "
                                  "error")
                       .arg(screenshot.index)
                       .arg(uuidText(session.id)));
        return {};
    }
    return "<img class=\"" + cssClass.toByteArray() + "\" src=\"data:image/jpeg;base64," +
           screenshot.imageData.toBase64() + "\" alt=\"Screenshot " +
           QByteArray::number(screenshot.index + 1) +
           "\" role=\"button\" tabindex=\"0\" data-file=\"" + escapedForHtml(*path).toUtf8() +
           "\">";
}

} // namespace quellora::responsepage
