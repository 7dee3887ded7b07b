#include "overlay/page/PageAddresses.h"
#include "overlay/page/PageStyle.h"
#include "overlay/page/ResponsePage.h"

#include "fakes/LogCapture.h"

#include <QTest>
#include <QTimeZone>

using namespace quellora;
using namespace quellora::responsepage;

namespace {

const QDateTime noon(QDate(2026, 11, 21), QTime(12, 0));

PageAppearance light(double alpha)
{
    return {AppTheme::Light, alpha, std::nullopt, QStringLiteral("⌃⌥⌘C")};
}

std::optional<QString> previewOf(const CaptureSession::Screenshot &screenshot,
                                 const CaptureSession &)
{
    return QStringLiteral("/tmp/p/screenshot-%1.jpg").arg(screenshot.index);
}

CaptureSession::Turn turn(const char *prompt, const char *response, const QDateTime &at)
{
    return {QUuid::createUuid(), QString::fromUtf8(prompt), QString::fromUtf8(response), at};
}

QByteArray joined(std::initializer_list<QByteArrayView> pieces)
{
    QByteArray all;
    for (const QByteArrayView piece : pieces)
        all += piece;
    return all;
}

constexpr QByteArrayView bridge =
    "(function(){\nconst el=document.body;\nfunction post(){window.webkit.messageHandlers."
    "scrollPosition.postMessage({scrollTop:el.scrollTop,scrollHeight:el.scrollHeight,"
    "clientHeight:el.clientHeight});}\nel.addEventListener('scroll',post,{passive:true});\n"
    "window.addEventListener('resize',post,{passive:true});\nwindow.__scrollBridgePost=post;\n"
    "post();\n})();\n</script></body></html>";

constexpr QByteArrayView head = "<!DOCTYPE html><html><head><meta charset=\"utf-8\">\n";

QByteArray resources(QByteArrayView codeStyle)
{
    return joined({"<link id=\"hljs-theme\" rel=\"stylesheet\" href=\"", codeStyle,
                   "\"><script src=\"", pageaddress::highlightScript, "\"></script><script src=\"",
                   pageaddress::markedScript, "\"></script>\n"});
}

} // namespace

class TestPageText : public QObject
{
    Q_OBJECT

private slots:
    void escapesForTemplateLiterals();
    void escapesForStreaming();
    void escapesForHtml();
    void guardsInlineScripts();
    void writesNumbers();
    void derivesAlphas();
    void formatsTimestamps();
    void scripts();
    void singleAnswer();
    void singleAnswerWithTextColor();
    void screenshotOnly();
    void noteEntry();
    void turnEntry();
    void thread();
    void shellWithoutThread();
    void shellAfterEntries();
    void thumbnailWithoutFileIsDropped();
    void screenshotBelongsToTheTurnThatFollows();
    void recordedScreenshotOfATurnIsShown();
    void styleSheetHasEveryRule();
};

void TestPageText::escapesForTemplateLiterals()
{
    QCOMPARE(escapedForTemplateLiteral(QStringLiteral("a\\b`c'${d}\n")),
             QStringLiteral("a\\\\b\\`c'${d}\n"));
}

void TestPageText::escapesForStreaming()
{
    QCOMPARE(escapedForStreaming(QStringLiteral("\\ ` ' ${x}")),
             QStringLiteral("\\\\ \\` \\' ${x}"));
}

void TestPageText::escapesForHtml()
{
    QCOMPARE(escapedForHtml(QStringLiteral("<b> & \"q\" 's' &lt;")),
             QStringLiteral("&lt;b&gt; &amp; &quot;q&quot; &#39;s&#39; &amp;lt;"));
}

void TestPageText::guardsInlineScripts()
{
    QCOMPARE(guardedInlineScript("x</script><SCRIPT>y<!--<b></b><!-"),
             QByteArray("x<\\/script><\\SCRIPT>y<\\!--<b></b><!-"));
    QCOMPARE(guardedInlineScript("plain"), QByteArray("plain"));
    QCOMPARE(guardedInlineScript("<"), QByteArray("<"));
}

void TestPageText::writesNumbers()
{
    QCOMPARE(shortestDecimal(0), QStringLiteral("0"));
    QCOMPARE(shortestDecimal(0.15), QStringLiteral("0.15"));
    QCOMPARE(shortestDecimal(1e-7), QStringLiteral("0.0000001"));
    QCOMPARE(shortestDecimal((1 - 0.88) * 0.72).toDouble(), (1 - 0.88) * 0.72);
    QCOMPARE(defaultDecimal(-60), QStringLiteral("-60.0"));
    QCOMPARE(defaultDecimal(0.5), QStringLiteral("0.5"));
    QCOMPARE(defaultDecimal(12.25), QStringLiteral("12.25"));
}

void TestPageText::derivesAlphas()
{
    QCOMPARE(pillAlpha(1), 0.0);
    QCOMPARE(codeAlpha(1), 0.15);
    QCOMPARE(pillAlpha(0), 0.72);
    QCOMPARE(codeAlpha(0), 0.72);
    QCOMPARE(pillAlpha(0.88), (1 - 0.88) * 0.72);
    QCOMPARE(codeAlpha(0.88), 0.15);
    QCOMPARE(pillAlpha(2), 0.0);
    QCOMPARE(pillAlpha(-1), 0.72);
}

void TestPageText::formatsTimestamps()
{
    QCOMPARE(threadTimestamp(QDateTime(QDate(2026, 1, 5), QTime(9, 5))),
             QStringLiteral("Jan 5, 9:05 AM"));
    QCOMPARE(threadTimestamp(QDateTime(QDate(2026, 11, 21), QTime(0, 30))),
             QStringLiteral("Nov 21, 12:30 AM"));
    QCOMPARE(threadTimestamp(QDateTime(QDate(2026, 11, 21), QTime(15, 0)).toUTC()),
             QStringLiteral("Nov 21, 3:00 PM"));
}

void TestPageText::scripts()
{
    QCOMPARE(hideLoadingScript(),
             QStringLiteral("document.getElementById('loading').style.display='none';"));
    QCOMPARE(streamRenderScript(QStringLiteral("it's `x` \\"), false),
             QStringLiteral("document.getElementById('streaming-response').innerHTML = "
                            "marked.parse(`it\\'s \\`x\\` \\\\`);\n"
                            "document.body.scrollTop = document.body.scrollHeight;"));
    QCOMPARE(streamRenderScript(QString(), true),
             QStringLiteral("document.getElementById('streaming-response').innerHTML = "
                            "marked.parse(``);\n"
                            "document.body.scrollTop = document.body.scrollHeight;\n"
                            "document.querySelectorAll('pre code').forEach(el => "
                            "hljs.highlightElement(el));"));
    QCOMPARE(scrollByScript(-60), QStringLiteral("document.body.scrollBy(0, -60.0);"));
    QCOMPARE(scrollByScript(10.5), QStringLiteral("document.body.scrollBy(0, 10.5);"));
    QCOMPARE(scrollToFractionScript(1),
             QStringLiteral("(function(){var extent=Math.max(1, document.body.scrollHeight-"
                            "document.body.clientHeight); document.body.scrollTop = extent * 1.0;"
                            "})();"));
    PageAppearance hint;
    hint.captureHotkey = QStringLiteral("Ctrl+\"'\\");
    hint.answererName = QStringLiteral("R&D \"reader\"");
    QCOMPARE(hintScript(hint),
             QStringLiteral("(function(texts){var key=document.querySelector('#ph kbd');"
                            "if(key){key.textContent=texts[0];key.nextSibling.textContent=texts[1];"
                            "document.getElementById('ld').textContent=texts[2];}})("
                            "[\"Ctrl+\\\"'\\\\\","
                            "\" to capture screen \u2192 R&D \\\"reader\\\" responds here\","
                            "\"\u23f3 R&D \\\"reader\\\" is thinking...\"]);"));
    QCOMPARE(pillAlphaScript(1),
             QStringLiteral("document.documentElement.style.setProperty('--pill-alpha', '0');"
                            "document.documentElement.style.setProperty('--code-alpha', '0.15');"));
    PageAppearance appearance = light(1);
    QCOMPARE(themeScript(appearance),
             QStringLiteral("document.documentElement.style.removeProperty('--text');"
                            "document.body.className = 'light';(function(){var link=document."
                            "getElementById('hljs-theme');if(link){link.href='%1';}})();")
                 .arg(QString::fromLatin1(pageaddress::lightCodeStyle)));
    appearance.theme = AppTheme::Dark;
    appearance.textColorHex = QStringLiteral("#8899aa");
    QCOMPARE(themeScript(appearance),
             QStringLiteral("document.documentElement.style.setProperty('--text', '#8899aa');"
                            "document.body.className = '';(function(){var link=document."
                            "getElementById('hljs-theme');if(link){link.href='%1';}})();")
                 .arg(QString::fromLatin1(pageaddress::darkCodeStyle)));
}

void TestPageText::singleAnswer()
{
    const QByteArray expected = joined(
        {head, resources(pageaddress::lightCodeStyle), "<style>", pagestyle::base,
         "\n\n:root{--pill-alpha:0.36;--code-alpha:0.36}\n", pagestyle::singleAnswer,
         "</style></head><body class=\"light\"><div id=\"ct\"></div>\n<div id=\"ph\">Hit <kbd>"
         "\u2303\u2325\u2318C</kbd> to capture screen \u2192 Claude responds here</div>\n"
         "<div id=\"ld\">\u23f3 Claude is thinking...</div>\n<script>\nconst "
         "raw=`a\\`<\\/script>`;\n"
         "const ct=document.getElementById('ct');\nconst ph=document.getElementById('ph');\n"
         "const ld=document.getElementById('ld');\n"
         "if(raw.trim()===''){ph.style.display='block';}\n"
         "else if(raw==='__LOADING__'){ld.style.display='block';}\n"
         "else{ph.style.display='none';ct.innerHTML=marked.parse(raw);"
         "document.querySelectorAll('pre code').forEach(el => hljs.highlightElement(el));}\n",
         bridge});
    QCOMPARE(singleAnswerPage(QStringLiteral("a`</script>"), light(0.5)), expected);
}

void TestPageText::singleAnswerWithTextColor()
{
    PageAppearance appearance = light(1);
    appearance.theme = AppTheme::Dark;
    appearance.textColorHex = QStringLiteral("#8899aa");
    appearance.captureHotkey = QStringLiteral("<&");
    const QByteArray page = singleAnswerPage(QString(), appearance);
    QVERIFY(page.contains(joined({pagestyle::base, "\n:root{--text:#8899aa}\n"
                                                   ":root{--pill-alpha:0;--code-alpha:0.15}\n"})));
    QVERIFY(page.contains("<body class=\"\">"));
    QVERIFY(page.contains("<kbd>&lt;&amp;</kbd>"));
    QVERIFY(page.contains(resources(pageaddress::darkCodeStyle)));
}

void TestPageText::screenshotOnly()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addScreenshot("AB", noon, noon);
    session.addScreenshot("CD", noon, noon);
    const QByteArray expected = joined(
        {head, "<style>", pagestyle::base, "\n\n:root{--pill-alpha:0;--code-alpha:0.15}\n",
         pagestyle::screenshotOnly,
         "</style></head><body class=\"light\"><div id=\"ct\">"
         "<img class=\"thumb thumb-empty\" src=\"data:image/jpeg;base64,QUI=\" onclick=\"window."
         "webkit.messageHandlers.openScreenshot.postMessage('/tmp/p/screenshot-0.jpg')\">"
         "<img class=\"thumb thumb-empty\" src=\"data:image/jpeg;base64,Q0Q=\" onclick=\"window."
         "webkit.messageHandlers.openScreenshot.postMessage('/tmp/p/screenshot-1.jpg')\">"
         "</div>\n<div id=\"empty-note\">Screenshot only \u2014 no notes or AI turns yet.</div>\n"
         "<script>\n",
         bridge});
    QCOMPARE(screenshotOnlyPage(session, light(1), previewOf), expected);
}

void TestPageText::noteEntry()
{
    const CaptureSession::Note note{QUuid(QStringLiteral("0a1b2c3d-0000-4000-8000-00000000abcd")),
                                    QStringLiteral("use <b>"), noon};
    QCOMPARE(entryBodyHTML(note, {}, previewOf),
             QByteArray("<div class=\"entry note-entry\"><div class=\"entry-timestamp\">"
                        "Nov 21, 12:00 PM</div><button class=\"note-delete\" onclick=\"window."
                        "webkit.messageHandlers.noteDelete.postMessage("
                        "'0A1B2C3D-0000-4000-8000-00000000ABCD')\">\u00d7</button>"
                        "<div class=\"note-body\"><div class=\"note-text truncatable\">"
                        "use &lt;b&gt;</div></div></div>"));
}

void TestPageText::turnEntry()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addScreenshot("AB", noon, noon);
    CaptureSession::Turn item = turn("a & b", "answer", noon.addSecs(5));
    item.id = QUuid(QStringLiteral("0a1b2c3d-0000-4000-8000-00000000abcd"));
    session.turns.append(item);
    QCOMPARE(entryBodyHTML(item, session, previewOf),
             QByteArray("<div class=\"entry turn-entry\"><div class=\"entry-timestamp\">"
                        "Nov 21, 12:00 PM</div><div class=\"turn-prompt\"><img class=\"thumb\" "
                        "src=\"data:image/jpeg;base64,QUI=\" onclick=\"window.webkit."
                        "messageHandlers.openScreenshot.postMessage('/tmp/p/screenshot-0.jpg')\">"
                        "<div class=\"prompt-text truncatable\">a &amp; b</div></div>"
                        "<div class=\"turn-response\" id=\"resp-0A1B2C3D-0000-4000-8000-"
                        "00000000ABCD\"></div></div>"));
}

void TestPageText::thread()
{
    CaptureSession session = CaptureSession::create(noon);
    session.turns = {turn("p1", "r`1", noon), turn("p2", "</script>\\", noon.addSecs(60))};
    session.notes = {{QUuid::createUuid(), QStringLiteral("n"), noon}};
    const QByteArray first = uuidText(session.turns[0].id).toLatin1();
    const QByteArray second = uuidText(session.turns[1].id).toLatin1();
    // At equal times the note comes first.
    const QByteArray expected = joined(
        {head,
         resources(pageaddress::lightCodeStyle),
         "<style>",
         pagestyle::base,
         pagestyle::thread,
         "\n\n:root{--pill-alpha:0;--code-alpha:0.15}\n",
         "</style></head><body class=\"light\"><div id=\"ct\">",
         entryBodyHTML(session.notes[0], session, previewOf),
         "<div class=\"divider\"></div>",
         entryBodyHTML(session.turns[0], session, previewOf),
         "<div class=\"divider\"></div>",
         entryBodyHTML(session.turns[1], session, previewOf),
         "</div>\n<script>\nconst responses={",
         "\"resp-",
         first,
         "\":`r\\`1`,\"resp-",
         second,
         "\":`<\\/script>\\\\`};\n",
         "for(const id in responses){document.getElementById(id).innerHTML="
         "marked.parse(responses[id]);}\n"
         "document.querySelectorAll('pre code').forEach(el => hljs.highlightElement(el));\n"
         "document.addEventListener('click',function(e){const t=e.target.closest('.truncatable');"
         "if(t)t.classList.toggle('expanded');});\n"
         "document.body.scrollTop=document.body.scrollHeight;\n",
         bridge});
    QCOMPARE(threadPage(session, light(1), previewOf), expected);
}

void TestPageText::shellWithoutThread()
{
    const QByteArray page =
        streamingShellPage(std::nullopt, QStringLiteral("What's <this>?"), noon,
                           CaptureSession::Screenshot{3, "AB", noon}, light(1), previewOf);
    QVERIFY(page.contains(
        "<div id=\"ct\"><div class=\"entry turn-entry\"><div class=\"entry-timestamp\">Nov 21, "
        "12:00 PM</div><div class=\"turn-prompt\"><img class=\"thumb\" src=\"data:image/jpeg;"
        "base64,QUI=\" onclick=\"window.webkit.messageHandlers.openScreenshot.postMessage("
        "'/tmp/p/screenshot-3.jpg')\"><div class=\"prompt-text truncatable\">What&#39;s "
        "&lt;this&gt;?</div></div><div class=\"turn-response\" id=\"streaming-response\">"
        "<div id=\"loading\" style=\"display:flex; gap:6px; padding:4px 0;\"><div class=\"dot\">"
        "</div><div class=\"dot\"></div><div class=\"dot\"></div></div></div></div></div>\n"
        "<script>\nconst responses={};\n"));
    QVERIFY(page.endsWith("\n</script></body></html>"));
}

void TestPageText::shellAfterEntries()
{
    CaptureSession session = CaptureSession::create(noon);
    session.turns = {turn("p1", "r1", noon)};
    const QByteArray page =
        streamingShellPage(session, QStringLiteral("p2"), noon, std::nullopt, light(1), previewOf);
    QVERIFY(page.contains(entryBodyHTML(session.turns[0], session, previewOf) +
                          "<div class=\"divider\"></div><div class=\"entry turn-entry\">"));
    QVERIFY(page.contains("{\"resp-" + uuidText(session.turns[0].id).toLatin1() + "\":`r1`};"));
    QVERIFY(!page.contains("<img"));
}

void TestPageText::thumbnailWithoutFileIsDropped()
{
    LogCapture log;
    CaptureSession session = CaptureSession::create(noon);
    session.addScreenshot("AB", noon, noon);
    const auto none = [](const auto &, const auto &) { return std::optional<QString>(); };
    QCOMPARE(thumbnailHTML(session.screenshots[0], session, "thumb", none), QByteArray());
    QCOMPARE(log.lines,
             QStringList{QStringLiteral("[OverlayWindowController] renderThread: dropping "
                                        "thumbnail for screenshot 0 in session %1 — tempFileURL "
                                        "failed, see prior error")
                             .arg(uuidText(session.id))});
    QVERIFY(screenshotOnlyPage(session, light(1), none).contains("<div id=\"ct\"></div>"));
}

void TestPageText::screenshotBelongsToTheTurnThatFollows()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addScreenshot("0", noon, noon);
    session.addScreenshot("1", noon.addSecs(1), noon);
    session.turns.append(turn("with", "", noon.addSecs(2)));
    session.turns.append(turn("without", "", noon.addSecs(3)));
    session.addScreenshot("2", noon.addSecs(4), noon);
    session.turns.append(turn("later", "", noon.addSecs(5)));
    session.addScreenshot("3", noon.addSecs(6), noon);
    QCOMPARE(screenshotOfTurn(session, session.turns[0].id)->index, 1);
    QVERIFY(!screenshotOfTurn(session, session.turns[1].id));
    QCOMPARE(screenshotOfTurn(session, session.turns[2].id)->index, 2);
    QVERIFY(!screenshotOfTurn(session, QUuid::createUuid()));
}

void TestPageText::recordedScreenshotOfATurnIsShown()
{
    CaptureSession session = CaptureSession::create(noon);
    session.addScreenshot("0", noon, noon);
    session.addScreenshot("1", noon.addSecs(1), noon);
    session.turns.append(turn("with the first", "", noon.addSecs(2)));
    session.turns.append(turn("without", "", noon.addSecs(3)));
    session.addScreenshot("2", noon.addSecs(4), noon);
    session.turns.append(turn("with one that was removed", "", noon.addSecs(5)));
    session.turns[0].screenshot = CaptureSession::TurnScreenshot{0};
    session.turns[1].screenshot = CaptureSession::TurnScreenshot{};
    session.turns[2].screenshot = CaptureSession::TurnScreenshot{7};
    QCOMPARE(screenshotOfTurn(session, session.turns[0].id)->index, 0);
    QVERIFY(!screenshotOfTurn(session, session.turns[1].id));
    QVERIFY(!screenshotOfTurn(session, session.turns[2].id));
}

void TestPageText::styleSheetHasEveryRule()
{
    const QByteArray base = pagestyle::base.toByteArray();
    for (const char *rule :
         {"--bg-input-rgb:43,46,56;", "--bg-input-rgb:232,229,221;", "--pill-rgb:20,22,28}",
          "--pill-rgb:245,245,247}", "html,body{height:100%;overflow-y:auto}",
          "body::-webkit-scrollbar{display:none}", "padding:14px 16px 20px}", "p{margin:5px 0}",
          "width:fit-content}", "overflow-x:auto}", "!important;padding:0;color:inherit",
          "border-left:3px solid var(--accent)", "padding-top:4px;padding-right:8px"})
        QVERIFY2(base.contains(rule), rule);
    const QByteArray thread = pagestyle::thread.toByteArray();
    for (const char *rule :
         {".entry{padding:10px 0}", ".thumb{width:48px;height:36px;", "-webkit-line-clamp:3;",
          ".truncatable.expanded{display:block;-webkit-line-clamp:unset}", "font-size:12.5px;",
          "animation:bounce 1.2s infinite ease-in-out}", "translateY(-8px)"})
        QVERIFY2(thread.contains(rule), rule);
    // A pill must not add vertical margins of its own.
    const qsizetype pill = base.indexOf("p,li,h1,h2,h3{");
    const QByteArray pillRule = base.mid(pill, base.indexOf('}', pill) - pill);
    QVERIFY(!pillRule.contains("margin:") && !pillRule.contains("margin-top"));
}

QTEST_GUILESS_MAIN(TestPageText)
#include "test_page_text.moc"
