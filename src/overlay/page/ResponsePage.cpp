#include "overlay/page/ResponsePage.h"

#include "app/Log.h"
#include "overlay/page/PageAddresses.h"
#include "overlay/page/PageStyle.h"

#include <QStringList>

namespace quellora::responsepage {

namespace {

constexpr QByteArrayView divider = "<div class=\"divider\"></div>";

constexpr QByteArrayView loadingDots =
    "<div id=\"loading\" style=\"display:flex; gap:6px; padding:4px 0;\">"
    "<div class=\"dot\"></div><div class=\"dot\"></div><div class=\"dot\"></div></div>";

constexpr QByteArrayView scrollBridge =
    "(function(){\n"
    "const el=document.body;\n"
    "function post(){window.webkit.messageHandlers.scrollPosition.postMessage({"
    "scrollTop:el.scrollTop,scrollHeight:el.scrollHeight,clientHeight:el.clientHeight});}\n"
    "el.addEventListener('scroll',post,{passive:true});\n"
    "window.addEventListener('resize',post,{passive:true});\n"
    "window.__scrollBridgePost=post;\n"
    "post();\n"
    "})();";

constexpr QByteArrayView highlightAll =
    "document.querySelectorAll('pre code').forEach(el => hljs.highlightElement(el));";

constexpr QByteArrayView headStart = "<!DOCTYPE html><html><head><meta charset=\"utf-8\">\n";
constexpr QByteArrayView pageEnd = "\n</script></body></html>";

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

/// Code style, highlighter and Markdown renderer.
QByteArray headResources(AppTheme theme)
{
    const QByteArrayView style =
        theme == AppTheme::Dark ? pageaddress::darkCodeStyle : pageaddress::lightCodeStyle;
    return "<link id=\"hljs-theme\" rel=\"stylesheet\" href=\"" + style.toByteArray() + "\">" +
           scriptElement(pageaddress::highlightScript) + scriptElement(pageaddress::markedScript) +
           '\n';
}

/// The style element with the rules that every page has and @p before and @p after in their places.
QByteArray styleElement(const PageAppearance &appearance, QByteArrayView before,
                        QByteArrayView after)
{
    QByteArray style = "<style>" + pagestyle::base.toByteArray() + before.toByteArray() + '\n';
    if (appearance.textColorHex)
        style += ":root{--text:" + appearance.textColorHex->toUtf8() + '}';
    style += "\n:root{--pill-alpha:" + shortestDecimal(pillAlpha(appearance.alpha)).toUtf8() +
             ";--code-alpha:" + shortestDecimal(codeAlpha(appearance.alpha)).toUtf8() + "}\n";
    return style + after.toByteArray() + "</style>";
}

QByteArray bodyStart(AppTheme theme)
{
    return QByteArray("</head><body class=\"") + (theme == AppTheme::Light ? "light" : "") + "\">";
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
        pairs += '"' + response.elementId + "\":`" +
                 guardedInlineScript(escapedForTemplateLiteral(response.markdown).toUtf8()) + '`';
    }

    QByteArray page = headStart.toByteArray();
    page.reserve(entriesHtml.size() + pairs.size() + 16384);
    page += headResources(appearance.theme);
    page += styleElement(appearance, pagestyle::thread, {});
    page += bodyStart(appearance.theme);
    page += "<div id=\"ct\">";
    page += entriesHtml;
    page += "</div>\n<script>\nconst responses={";
    page += pairs;
    page += "};\n"
            "for(const id in responses){"
            "document.getElementById(id).innerHTML=marked.parse(responses[id]);}\n";
    page += highlightAll;
    page += "\ndocument.addEventListener('click',function(e){"
            "const t=e.target.closest('.truncatable');if(t)t.classList.toggle('expanded');});\n"
            "document.body.scrollTop=document.body.scrollHeight;\n";
    page += scrollBridge;
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
    QByteArray page = headStart.toByteArray();
    page += headResources(appearance.theme);
    page += styleElement(appearance, {}, pagestyle::singleAnswer);
    page += bodyStart(appearance.theme);
    page += "<div id=\"ct\"></div>\n<div id=\"ph\">Hit <kbd>";
    page += escapedForHtml(appearance.captureHotkey).toUtf8();
    page += "</kbd>" + escapedForHtml(hintEnd(appearance.answererName)).toUtf8() +
            "</div>\n<div id=\"ld\">" +
            escapedForHtml(thinkingText(appearance.answererName)).toUtf8() + "</div>\n";
    page += "<script>\nconst raw=`";
    page += guardedInlineScript(escapedForTemplateLiteral(markdown).toUtf8());
    page += "`;\n"
            "const ct=document.getElementById('ct');\n"
            "const ph=document.getElementById('ph');\n"
            "const ld=document.getElementById('ld');\n"
            "if(raw.trim()===''){ph.style.display='block';}\n"
            "else if(raw==='__LOADING__'){ld.style.display='block';}\n"
            "else{ph.style.display='none';ct.innerHTML=marked.parse(raw);";
    page += highlightAll;
    page += "}\n";
    page += scrollBridge;
    page += pageEnd;
    return page;
}

QByteArray screenshotOnlyPage(const CaptureSession &session, const PageAppearance &appearance,
                              const PreviewPath &previewPath)
{
    QByteArray page = headStart.toByteArray();
    page += styleElement(appearance, {}, pagestyle::screenshotOnly);
    page += bodyStart(appearance.theme);
    page += "<div id=\"ct\">";
    for (const CaptureSession::Screenshot &screenshot : session.screenshots)
        page += thumbnailHTML(screenshot, session, "thumb thumb-empty", previewPath);
    page += QStringLiteral("</div>\n<div id=\"empty-note\">Screenshot only — no notes or AI turns "
                           "yet.</div>\n<script>\n")
                .toUtf8();
    page += scrollBridge;
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
    entries += loadingDots;
    entries += "</div></div>";
    return pageOfEntries(entries, responses, appearance);
}

QByteArray entryBodyHTML(const ThreadEntry &entry, const CaptureSession &session,
                         const PreviewPath &previewPath)
{
    if (const auto *note = std::get_if<CaptureSession::Note>(&entry)) {
        return "<div class=\"entry note-entry\">" + timestampHTML(note->createdAt) +
               "<button class=\"note-delete\" onclick=\"window.webkit.messageHandlers.noteDelete."
               "postMessage('" +
               uuidText(note->id).toLatin1() + "')\">" + QStringLiteral("×").toUtf8() +
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
    // The path is our own: a fixed folder name, a UUID and a number below the temporary folder.
    return "<img class=\"" + cssClass.toByteArray() + "\" src=\"data:image/jpeg;base64," +
           screenshot.imageData.toBase64() +
           "\" onclick=\"window.webkit.messageHandlers.openScreenshot.postMessage('" +
           path->toUtf8() + "')\">";
}

} // namespace quellora::responsepage
