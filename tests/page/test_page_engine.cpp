#include "page/EnginePageTest.h"
#include "page/ResponsePage.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"
#include "support/TestProgram.h"

#include <QBuffer>
#include <QClipboard>
#include <QGuiApplication>
#include <QImage>

using namespace quellora;

namespace {

const QString sample = QStringLiteral("# Title\n\nSome **bold** and *soft* text with `code` and a "
                                      "[link](https://example.com/x).\n\n"
                                      "```cpp\nint main() { return 0; }\n```\n\n"
                                      "- one\n- two\n  - [x] nested\n\n> quote\n\n"
                                      "| a | b |\n|:-:|--:|\n| 1 | 2 |\n\n1. first\n2. second\n");

QByteArray picture(const char *format)
{
    QImage image(4, 3, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    if (!image.save(&buffer, format))
        qFatal("no %s picture", format);
    return bytes;
}

} // namespace

class TestPageEngine : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void rendersMarkdownWithoutNetwork();
    void hintAndIndicator();
    void nothingMovesWhenMotionIsReduced();
    void followsTextSize();
    void scrollbarFollowsTextSize();
    void specialCharactersShowLiterally();
    void facesAreTheBundledOnes();
    void threadShowsEverything();
    void expandsClampedText();
    void clampedTextIsOpenedByKey();
    void thumbnailIsOpenedByKey();
    void ruleIsAQuietLine();
    void answerThatCannotBeRenderedHidesNoOther();
    void messagesArriveFromTheFirstOnInOrder();
    void floodOfMessagesIsBounded();
    void pageScriptsCannotReachTheBridge();
    void scrollCommandsMoveThePage();
    void themeAndAlphaReachThePage();
    void ownTextColorIsChangedLiveInBothThemes();
    void captureHotkeyOfTheHintIsChangedLive();
    void streamedAnswerEqualsAWholeRender();
    void streamedTurnEqualsALoadedOne();
    void picturesAreShownByAddress();
    void farPicturesAreFetchedWhenScrolledNear();
    void dotsHideOnTheFirstChunk();
    void linkOpensOutside_data();
    void linkOpensOutside();
    void syntheticClicksOpenNothing();
    void copyButtonCopiesTheBlock();
    void copyButtonWaitsForTheEndOfTheStream();
    void loadsBeforeTheViewWait();
    void largePageLoads();
};

void TestPageEngine::rendersMarkdownWithoutNetwork()
{
    QVERIFY(finished(m_display->loadContent(sample)));
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('#ct h1').innerText")),
             QStringLiteral("Title"));
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('#ct strong').innerText")),
             QStringLiteral("bold"));
    QVERIFY(
        m_engine->value(QStringLiteral("document.querySelector('pre code .hljs-type') !== null"))
            .toBool());
    // The code style really applies.
    QCOMPARE(m_engine->text(QStringLiteral(
                 "getComputedStyle(document.querySelector('pre code.hljs')).display")),
             QStringLiteral("block"));
    QCOMPARE(
        m_engine->text(QStringLiteral("getComputedStyle(document.getElementById('ph')).display")),
        QStringLiteral("none"));
    QCOMPARE(m_engine
                 ->value(QStringLiteral("document.querySelectorAll('input[type=checkbox]"
                                        "[disabled][checked]').length"))
                 .toInt(),
             1);
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('td').align")),
             QStringLiteral("center"));
}

void TestPageEngine::hintAndIndicator()
{
    const QString hint = QStringLiteral("getComputedStyle(document.getElementById('ph')).display");
    const QString indicator =
        QStringLiteral("getComputedStyle(document.getElementById('ld')).display");
    m_display->setCaptureHotkey(QStringLiteral("Ctrl+C"));
    QVERIFY(finished(m_display->loadContent(QStringLiteral("   "))));
    QCOMPARE(m_engine->text(hint), QStringLiteral("block"));
    QCOMPARE(m_engine->text(indicator), QStringLiteral("none"));
    QCOMPARE(m_engine->text(QStringLiteral("document.getElementById('ph').innerText")),
             QStringLiteral("Hit Ctrl+C to capture screen → Claude responds here"));
    QVERIFY(finished(m_display->loadContent(QStringLiteral("__LOADING__"))));
    QCOMPARE(m_engine->text(indicator), QStringLiteral("block"));
}

void TestPageEngine::nothingMovesWhenMotionIsReduced()
{
    const QString moving = QStringLiteral("document.getAnimations().length");
    const QString indicator = QStringLiteral("__LOADING__");
    QVERIFY(finished(m_display->loadContent(indicator)));
    ENGINE_TRY_COMPARE(m_engine->value(moving).toInt(), 1);
    // Affects the current page and later ones, and can be undone.
    m_engine->view.setMotionReduced(true);
    ENGINE_TRY_COMPARE(m_engine->value(moving).toInt(), 0);
    QVERIFY(finished(m_display->loadContent(indicator)));
    QCOMPARE(m_engine->value(moving).toInt(), 0);
    QVERIFY(finished(m_display->loadStreamingShell(std::nullopt, QStringLiteral("q"),
                                                   QDateTime::currentDateTime(), std::nullopt)));
    QCOMPARE(m_engine->value(QStringLiteral("document.querySelectorAll('.dot').length")).toInt(),
             3);
    QCOMPARE(m_engine->value(moving).toInt(), 0);
    m_engine->view.setMotionReduced(false);
    ENGINE_TRY_COMPARE(m_engine->value(moving).toInt(), 3);
}

void TestPageEngine::followsTextSize()
{
    const auto fontHeight = [this] {
        return m_engine
            ->value(QStringLiteral("document.querySelector('p').getBoundingClientRect()"
                                   ".height * devicePixelRatio"))
            .toDouble();
    };
    QVERIFY(finished(m_display->loadContent(QStringLiteral("word"))));
    const double normal = fontHeight();
    QVERIFY(normal > 0);
    // Affects the current page and later ones from their first frame on, and can be undone.
    m_engine->view.setTextScale(1.5);
    ENGINE_TRY_COMPARE(qRound(fontHeight() / normal * 20), 30);
    for (int i = 0; i < 3; ++i) {
        QVERIFY(finished(m_display->loadContent(QStringLiteral("word"))));
        QCOMPARE(qRound(fontHeight() / normal * 20), 30);
    }
    m_engine->view.setTextScale(1);
    ENGINE_TRY_COMPARE(qRound(fontHeight() / normal * 20), 20);
}

void TestPageEngine::scrollbarFollowsTextSize()
{
    QList<double> ratios;
    connect(m_display.get(), &ResponseDisplay::scrollPositionChanged, this,
            [&ratios](bool, double ratio, double) { ratios << ratio; });
    QVERIFY(finished(m_display->loadContent(QStringLiteral("line\n\n").repeated(60))));
    QVERIFY(runUntil([&] { return !ratios.isEmpty(); }));
    const double before = ratios.last();
    m_engine->view.setTextScale(2);
    QVERIFY(runUntil([&] { return ratios.last() < before * 0.7; }));
}

void TestPageEngine::specialCharactersShowLiterally()
{
    const QString text = QStringLiteral("a\\b c`d it's </script> x <!-- y");
    QVERIFY(finished(m_display->loadContent(QStringLiteral("```\n%1\n```").arg(text))));
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('pre').innerText.trim()")),
             text);
    QVERIFY(finished(m_display->loadContent(QStringLiteral("sum ${1+1}"))));
    QCOMPARE(m_engine->text(QStringLiteral("document.getElementById('ct').innerText.trim()")),
             QStringLiteral("sum ${1+1}"));
}

void TestPageEngine::facesAreTheBundledOnes()
{
    QVERIFY(finished(m_display->loadContent(sample)));
    QVERIFY(m_engine
                ->value(QStringLiteral("document.fonts.check('600 13px \"SF Pro Text\"') && "
                                       "document.fonts.check('12px \"SF Mono\"')"))
                .toBool());
    QCOMPARE(m_engine->text(QStringLiteral(
                 "getComputedStyle(document.querySelector('pre code')).fontVariantLigatures")),
             QStringLiteral("none"));
}

void TestPageEngine::threadShowsEverything()
{
    const QDateTime start = QDateTime::currentDateTime();
    CaptureSession session = CaptureSession::create();
    session.addNote(QStringLiteral("a <b>note</b>"), start);
    session.addScreenshot("JPEG", start.addSecs(1));
    session.addTurn(QStringLiteral("what's this?"), sample, start.addSecs(2));
    session.addTurn(QStringLiteral("again"), QStringLiteral("```js\nlet x;\n```"),
                    start.addSecs(3));
    session.addVersion(session.turns[0].id, {QStringLiteral("what's this?"), sample, start}, true);
    QSignalSpy deleted(m_display.get(), &ResponseDisplay::noteDeleteRequested);
    QVERIFY(finished(m_display->renderThread(session)));
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('.note-text').innerText")),
             QStringLiteral("a <b>note</b>"));
    QCOMPARE(
        m_engine->value(QStringLiteral("document.querySelectorAll('.divider').length")).toInt(), 2);
    QCOMPARE(
        m_engine->value(QStringLiteral("document.querySelectorAll('.turn-response h1').length"))
            .toInt(),
        1);
    QCOMPARE(
        m_engine->value(QStringLiteral("document.querySelectorAll('code.hljs').length")).toInt(),
        2);
    QVERIFY(m_engine
                ->value(QStringLiteral("document.body.scrollTop > 0 && document.body.scrollTop + "
                                       "document.body.clientHeight >= "
                                       "document.body.scrollHeight - 1"))
                .toBool());

    QVERIFY(m_engine->click(QStringLiteral("document.querySelector('.note-delete')")));
    ENGINE_TRY_COMPARE(deleted.size(), 1);
    QCOMPARE(deleted[0][0].toUuid(), session.notes[0].id);
    QSignalSpy versions(m_display.get(), &ResponseDisplay::versionRequested);
    QVERIFY(m_engine->click(QStringLiteral("document.querySelector('[data-version=\"0\"]')")));
    ENGINE_TRY_COMPARE(versions.size(), 1);
    QCOMPARE(versions[0][0].toUuid(), session.turns[0].id);
    QCOMPARE(versions[0][1].toLongLong(), 0);
    QVERIFY(m_engine->click(QStringLiteral("document.querySelector('img.thumb')")));
    ENGINE_TRY_COMPARE(m_workspace.files.size(), 1);
    QFile preview(m_workspace.files[0]);
    QVERIFY(preview.open(QIODevice::ReadOnly));
    QCOMPARE(preview.readAll(), QByteArray("JPEG"));
}

void TestPageEngine::expandsClampedText()
{
    CaptureSession session = CaptureSession::create();
    session.addNote(QStringLiteral("1\n2\n3\n4\n5"));
    QVERIFY(finished(m_display->renderThread(session)));
    const QString height = QStringLiteral("document.querySelector('.note-text').clientHeight");
    const int clamped = m_engine->value(height).toInt();
    m_engine->value(QStringLiteral("document.querySelector('.note-text').click()"));
    QVERIFY(m_engine->value(height).toInt() > clamped);
    m_engine->value(QStringLiteral("document.querySelector('.note-text').click()"));
    QCOMPARE(m_engine->value(height).toInt(), clamped);
}

void TestPageEngine::clampedTextIsOpenedByKey()
{
    CaptureSession session = CaptureSession::create();
    session.addNote(QStringLiteral("1\n2\n3\n4\n5"));
    session.addNote(QStringLiteral("short"));
    QVERIFY(finished(m_display->renderThread(session)));
    const QString text = QStringLiteral("document.querySelectorAll('.note-text')[0]");
    const QString state = QStringLiteral(
        "[...document.querySelectorAll('.note-text')].map(e => [e.tabIndex, "
        "e.getAttribute('role'), e.getAttribute('aria-expanded')].join()).join(' ')");
    // The Tab key skips a text that fits.
    ENGINE_TRY_COMPARE(m_engine->text(state), QStringLiteral("0,button,false -1,,"));
    QVERIFY(m_engine->focus(text));
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Space}) {
        QTest::keyClick(&m_engine->window(), key);
        ENGINE_TRY_COMPARE(m_engine->text(state), QStringLiteral("0,button,true -1,,"));
        QVERIFY(m_engine->value(text + QStringLiteral(".clientHeight > 90")).toBool());
        QTest::keyClick(&m_engine->window(), key);
        ENGINE_TRY_COMPARE(m_engine->text(state), QStringLiteral("0,button,false -1,,"));
    }
    // When it is this narrow, the other text does not fit either.
    m_engine->value(QStringLiteral("document.querySelectorAll('.note-text')[1].style.width = '1ch';"
                                   "document.querySelectorAll('.note-text')[1].style"
                                   ".overflowWrap = 'anywhere'"));
    ENGINE_TRY_COMPARE(m_engine->text(state), QStringLiteral("0,button,false 0,button,false"));
}

void TestPageEngine::thumbnailIsOpenedByKey()
{
    CaptureSession session = CaptureSession::create();
    session.addScreenshot("first", QDateTime::currentDateTime());
    session.addScreenshot("second", QDateTime::currentDateTime());
    QVERIFY(finished(m_display->renderThread(session)));
    QCOMPARE(m_engine->text(QStringLiteral("[...document.images].map(e => e.alt).join()")),
             QStringLiteral("Screenshot 1,Screenshot 2"));
    m_engine->window().requestActivate();
    m_engine->view.item()->forceActiveFocus();
    const QString active = QStringLiteral("[...document.images].indexOf(document.activeElement)");
    int opened = 0;
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Space}) {
        QTest::keyClick(&m_engine->window(), Qt::Key_Tab);
        ENGINE_TRY_COMPARE(m_engine->value(active).toInt(), opened);
        QTest::keyClick(&m_engine->window(), key);
        ++opened;
        ENGINE_TRY_COMPARE(m_workspace.files.size(), opened);
        QVERIFY(
            m_workspace.files.last().endsWith(QStringLiteral("screenshot-%1.jpg").arg(opened - 1)));
    }
}

void TestPageEngine::ruleIsAQuietLine()
{
    QVERIFY(finished(m_display->loadContent(QStringLiteral("a\n\n---\n\nb"))));
    QCOMPARE(m_engine->text(QStringLiteral(
                 "(() => { const s = getComputedStyle(document.querySelector('#ct hr'));"
                 "return [s.height, s.borderTopStyle, s.backgroundColor].join(' '); })()")),
             QStringLiteral("1px none rgb(53, 57, 70)"));
}

void TestPageEngine::answerThatCannotBeRenderedHidesNoOther()
{
    const QDateTime start = QDateTime::currentDateTime();
    CaptureSession session = CaptureSession::create();
    session.addTurn(QStringLiteral("a"), QStringLiteral("*one*"), start);
    session.addTurn(QStringLiteral("b"), QStringLiteral("> ").repeated(20000), start.addSecs(1));
    session.addTurn(QStringLiteral("c"), QStringLiteral("*three*"), start.addSecs(2));
    QVERIFY(finished(m_display->renderThread(session)));
    QCOMPARE(m_engine->text(QStringLiteral("[...document.querySelectorAll('.turn-response')]"
                                           ".map(e => e.textContent.trim().slice(0, 5)).join()")),
             QStringLiteral("one,> > >,three"));
}

void TestPageEngine::messagesArriveFromTheFirstOnInOrder()
{
    const QString paragraphs = QStringLiteral("word\n\n").repeated(200);
    QSignalSpy messages(&m_engine->view, &PageSurface::message);
    const auto scrollTop = [&](qsizetype i) {
        return messages[i][1].value<QVariant>().toMap().value(QStringLiteral("scrollTop")).toInt();
    };
    for (int round = 0; round < 3; ++round) {
        messages.clear();
        QVERIFY(finished(m_display->loadContent(paragraphs)));
        ENGINE_TRY_COMPARE(messages.size(), 1);
        QCOMPARE(messages[0][0].toString(), QStringLiteral("scrollPosition"));
        QCOMPARE(scrollTop(0), 0);
        m_engine->value(
            QStringLiteral("(function step(i) { document.body.scrollTop = 3 * i;"
                           "if (i < 50) requestAnimationFrame(() => step(i + 1)); })(1)"));
        QVERIFY(runUntil([&] { return scrollTop(messages.size() - 1) == 150; }));
        for (qsizetype i = 1; i < messages.size(); ++i)
            QVERIFY(scrollTop(i) > scrollTop(i - 1));
    }
}

void TestPageEngine::floodOfMessagesIsBounded()
{
    QVERIFY(finished(m_display->loadContent(QStringLiteral("before"))));
    QSignalSpy messages(&m_engine->view, &PageSurface::message);
    auto *bridge = qobject_cast<PageBridge *>(m_engine->view.bridge());
    for (int i = 0; i < 100'000; ++i)
        bridge->post(QStringLiteral("noteDelete"), QStringLiteral("nonsense"));
    QCOMPARE(m_log->lines
                 .filter(QStringLiteral("[ResponseView] ERROR: The page posts more than 500 "
                                        "messages a second, dropping the rest"))
                 .size(),
             1);
    // A slow machine may take a few seconds for them.
    QVERIFY(messages.size() <= 500 * 10);
    QVERIFY(finished(m_display->loadContent(QStringLiteral("after"))));
    QCOMPARE(m_engine->text(QStringLiteral("document.getElementById('ct').innerText.trim()")),
             QStringLiteral("after"));
}

void TestPageEngine::pageScriptsCannotReachTheBridge()
{
    QVERIFY(finished(m_display->loadContent(QString())));
    QCOMPARE(m_engine->text(QStringLiteral("[typeof webkit, typeof qt, typeof QWebChannel,"
                                           "typeof __scrollBridgePost].join()")),
             QStringLiteral("undefined,undefined,undefined,undefined"));
}

void TestPageEngine::scrollCommandsMoveThePage()
{
    QSignalSpy scrolled(m_display.get(), &ResponseDisplay::scrollPositionChanged);
    QVERIFY(finished(m_display->loadContent(QStringLiteral("word\n\n").repeated(200))));
    QVERIFY(runUntil([&] { return !scrolled.isEmpty(); }));
    QVERIFY(scrolled.last()[0].toBool());
    QVERIFY(scrolled.last()[1].toDouble() < 0.5);
    QCOMPARE(scrolled.last()[2].toDouble(), 0.0);
    m_display->scrollToFraction(1);
    ENGINE_TRY_COMPARE(scrolled.last()[2].toDouble(), 1.0);
    m_display->scrollUp();
    QVERIFY(runUntil([&] { return scrolled.last()[2].toDouble() < 1.0; }));
    m_display->scrollByPixels(60);
    ENGINE_TRY_COMPARE(scrolled.last()[2].toDouble(), 1.0);
    m_display->scrollToFraction(0);
    ENGINE_TRY_COMPARE(scrolled.last()[2].toDouble(), 0.0);
    m_display->scrollDown();
    ENGINE_TRY_COMPARE(m_engine->value(QStringLiteral("document.body.scrollTop")).toInt(), 60);
}

void TestPageEngine::themeAndAlphaReachThePage()
{
    const auto variable = [this](const char *name) {
        return m_engine
            ->text(QStringLiteral("getComputedStyle(document.documentElement)"
                                  ".getPropertyValue('%1').trim()")
                       .arg(QLatin1StringView(name)))
            .trimmed();
    };
    QVERIFY(finished(m_display->loadContent(sample)));
    QCOMPARE(variable("--pill-alpha"), QStringLiteral("0"));
    QCOMPARE(variable("--code-alpha"), QStringLiteral("0.15"));
    m_display->setCurrentAlpha(0);
    m_display->pushPillAlphaLive();
    QCOMPARE(variable("--pill-alpha"), QStringLiteral("0.72"));
    QCOMPARE(variable("--code-alpha"), QStringLiteral("0.72"));

    const QString color = QStringLiteral("getComputedStyle(document.body).color");
    const QString codeColor =
        QStringLiteral("getComputedStyle(document.querySelector('pre code.hljs')).color");
    QCOMPARE(m_engine->text(color), QStringLiteral("rgb(232, 232, 234)"));
    m_display->setResponseTextColorHex(QStringLiteral("#8899aa"));
    m_display->applyTheme();
    QCOMPARE(m_engine->text(color), QStringLiteral("rgb(136, 153, 170)"));
    m_display->setResponseTextColorHex(std::nullopt);
    const QString darkLink =
        m_engine->text(QStringLiteral("document.getElementById('hljs-theme').href"));
    m_display->setAppliedTheme(AppTheme::Light);
    m_display->applyTheme();
    QCOMPARE(m_engine->text(color), QStringLiteral("rgb(28, 30, 36)"));
    QVERIFY(m_engine->text(QStringLiteral("document.getElementById('hljs-theme').href")) !=
            darkLink);
    // The other code style comes through the bundled assets, too.
    ENGINE_TRY_COMPARE(
        m_engine->value(QStringLiteral("[...document.styleSheets].filter(s => s.href).length"))
            .toInt(),
        1);
    QVERIFY(!m_engine->text(codeColor).isEmpty());
}

void TestPageEngine::ownTextColorIsChangedLiveInBothThemes()
{
    const QString color = QStringLiteral("getComputedStyle(document.body).color");
    const QString own = QStringLiteral("rgb(136, 153, 170)");
    const QString green = QStringLiteral("rgb(0, 255, 0)");
    for (const AppTheme theme : {AppTheme::Dark, AppTheme::Light}) {
        const QString plain = theme == AppTheme::Dark ? QStringLiteral("rgb(232, 232, 234)")
                                                      : QStringLiteral("rgb(28, 30, 36)");
        m_display->setAppliedTheme(theme);
        // In the page from the start, then another one, then none.
        m_display->setResponseTextColorHex(QStringLiteral("#8899aa"));
        QVERIFY(finished(m_display->loadContent(sample)));
        ENGINE_TRY_COMPARE(m_engine->text(color), own);
        m_display->setResponseTextColorHex(QStringLiteral("#00ff00"));
        m_display->applyTheme();
        ENGINE_TRY_COMPARE(m_engine->text(color), green);
        m_display->setResponseTextColorHex(std::nullopt);
        m_display->applyTheme();
        ENGINE_TRY_COMPARE(m_engine->text(color), plain);
        // In a page without one.
        QVERIFY(finished(m_display->loadContent(sample)));
        QCOMPARE(m_engine->text(color), plain);
        m_display->setResponseTextColorHex(QStringLiteral("#8899aa"));
        m_display->applyTheme();
        ENGINE_TRY_COMPARE(m_engine->text(color), own);
    }
    // It follows the page into the other theme.
    m_display->setAppliedTheme(AppTheme::Dark);
    m_display->applyTheme();
    ENGINE_TRY_COMPARE(m_engine->text(color), own);
}

void TestPageEngine::captureHotkeyOfTheHintIsChangedLive()
{
    const QString key = QStringLiteral("document.querySelector('#ph kbd').textContent");
    m_display->setCaptureHotkey(QStringLiteral("Ctrl+Option+Cmd+C"));
    QVERIFY(finished(m_display->loadContent(QString())));
    QCOMPARE(m_engine->text(key), QStringLiteral("Ctrl+Option+Cmd+C"));
    m_display->setCaptureHotkey(QStringLiteral("Ctrl+\"</script>\\"));
    m_display->pushHint();
    QCOMPARE(m_engine->text(key), QStringLiteral("Ctrl+\"</script>\\"));
}

void TestPageEngine::streamedAnswerEqualsAWholeRender()
{
    const QString slot = QStringLiteral("document.getElementById('streaming-response').innerHTML");
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    for (qsizetype at = 0; at < sample.size(); at += 3)
        renderer.handleStreamChunk(sample.mid(at, 3));
    QVERIFY(finished(m_display->latestPage()));
    renderer.handleStreamEnd();
    QVERIFY(runUntil([&] { return m_engine->text(slot).contains(QStringLiteral("hljs-type")); }));
    const QString streamed = m_engine->text(slot);
    QVERIFY(finished(m_display->loadContent(sample)));
    QCOMPARE(m_engine->text(QStringLiteral("document.getElementById('ct').innerHTML")), streamed);
}

void TestPageEngine::streamedTurnEqualsALoadedOne()
{
    const QDateTime start = QDateTime::currentDateTime().addSecs(-600);
    CaptureSession session = CaptureSession::create();
    session.addNote(QStringLiteral("1\n2\n3\n4\n5"), start);
    session.addScreenshot(picture("PNG"), start.addSecs(1));
    session.addTurn(QStringLiteral("before"), sample, start.addSecs(2));
    session.addScreenshot(picture("PNG"), start.addSecs(3));
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(session, QStringLiteral("<q>"), start.addSecs(3),
                               session.screenshots[1]);
    QVERIFY(finished(m_display->latestPage()));
    const QString answer = sample + QStringLiteral("\n\n<b>x\n\n") +
                           QStringLiteral("- i\n").repeated(60) + QStringLiteral("\n```js\n") +
                           QStringLiteral("let x = 1;\n").repeated(300);
    for (qsizetype at = 0; at < answer.size(); at += 13)
        renderer.handleStreamChunk(answer.mid(at, 13));
    renderer.handleStreamEnd();
    // A minute later than the question.
    session.addTurn(QStringLiteral("<q>"), answer, start.addSecs(90), start,
                    CaptureSession::TurnScreenshot{1});
    QSignalSpy loads(&m_engine->view, &PageSurface::loadFinished);
    m_log->clear();
    renderer.renderThread(session);
    QVERIFY(runUntil([&] {
        return m_log->contains(
            QStringLiteral("[OverlayWindowController] WebView finished loading"));
    }));
    QVERIFY(loads.isEmpty());
    const QString page =
        QStringLiteral("(() => { const copy = document.documentElement.cloneNode(true);"
                       // The load's number differs, and the key in the address; far pictures
                       // have none.
                       "copy.removeAttribute('data-load');"
                       "for (const image of copy.querySelectorAll('img.thumb')) {"
                       "image.removeAttribute('src'); image.removeAttribute('data-src'); }"
                       "return copy.outerHTML; })()");
    const QString tree =
        QStringLiteral("[...document.querySelectorAll('*')].map(e => e.childNodes.length).join()");
    const QString scroll =
        QStringLiteral("[document.body.scrollTop, document.body.scrollHeight].join()");
    QVERIFY(m_engine->painted());
    const QString streamed = m_engine->text(page);
    const QString streamedTree = m_engine->text(tree);
    const QString streamedScroll = m_engine->text(scroll);
    QVERIFY(streamed.contains(QStringLiteral("hljs-keyword")));
    QVERIFY(streamed.contains(uuidText(session.turns.last().id)));
    QVERIFY(!streamed.contains(QStringLiteral("streaming-response")));
    QVERIFY(finished(m_display->renderThread(session)));
    QVERIFY(m_engine->painted());
    QCOMPARE(m_engine->text(page), streamed);
    QCOMPARE(m_engine->text(tree), streamedTree);
    QCOMPARE(m_engine->text(scroll), streamedScroll);
}

void TestPageEngine::picturesAreShownByAddress()
{
    CaptureSession session = CaptureSession::create();
    session.addScreenshot(picture("PNG"), QDateTime::currentDateTime());
    session.addScreenshot(picture("JPEG"), QDateTime::currentDateTime());
    QVERIFY(finished(m_display->renderThread(session)));
    ENGINE_TRY_COMPARE(
        m_engine->text(QStringLiteral(
            "[...document.images].map(e => e.complete && e.naturalWidth > 0).join()")),
        QStringLiteral("true,true"));
    QVERIFY(
        m_engine
            ->value(QStringLiteral("[...document.images].every(e => "
                                   "/^quellora-page:picture\\/[0-9a-f]{32}\\/\\d$/.test(e.src))"))
            .toBool());
}

void TestPageEngine::farPicturesAreFetchedWhenScrolledNear()
{
    CaptureSession session = CaptureSession::create();
    QDateTime time = QDateTime::currentDateTime();
    for (int i = 0; i < 3; ++i) {
        time = time.addSecs(1);
        session.addScreenshot(picture("PNG"), time);
        time = time.addSecs(1);
        session.addTurn(QStringLiteral("q"), QStringLiteral("line\n\n").repeated(200), time);
    }
    const QString loaded =
        QStringLiteral("[...document.images].map(e => e.complete && e.naturalWidth > 0).join()");
    QVERIFY(finished(m_display->renderThread(session)));
    QCOMPARE(m_engine->text(QStringLiteral("[...document.images].map(e => e.src !== '').join()")),
             QStringLiteral("false,false,false"));
    m_engine->value(QStringLiteral("document.images[2].scrollIntoView(); 0"));
    ENGINE_TRY_COMPARE(m_engine->text(loaded), QStringLiteral("false,false,true"));
    m_engine->value(QStringLiteral("document.body.scrollTop = 0; 0"));
    ENGINE_TRY_COMPARE(m_engine->text(loaded), QStringLiteral("true,false,true"));
}

void TestPageEngine::dotsHideOnTheFirstChunk()
{
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    QCOMPARE(m_engine->value(QStringLiteral("document.querySelectorAll('#loading .dot').length"))
                 .toInt(),
             3);
    QCOMPARE(m_engine->text(QStringLiteral(
                 "(() => { const s = getComputedStyle(document.getElementById('loading'));"
                 "return [s.display, s.columnGap, s.paddingTop].join(' '); })()")),
             QStringLiteral("flex 6px 4px"));
    renderer.handleStreamChunk(QStringLiteral("it's"));
    ENGINE_TRY_COMPARE(
        m_engine->text(QStringLiteral("document.getElementById('streaming-response').innerText"))
            .trimmed(),
        QStringLiteral("it's"));
    QVERIFY(
        m_engine->value(QStringLiteral("document.getElementById('loading') === null")).toBool());

    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    renderer.handleStreamEnd();
    ENGINE_TRY_COMPARE(
        m_engine->text(QStringLiteral("document.getElementById('streaming-response').innerHTML")),
        QString());
}

void TestPageEngine::linkOpensOutside_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QString>("opened");
    QTest::newRow("https") << QStringLiteral("[a link](https://example.com/x?y=1)")
                           << QStringLiteral("https://example.com/x?y=1");
    QTest::newRow("mail") << QStringLiteral("<someone@example.com>")
                          << QStringLiteral("mailto:someone@example.com");
    QTest::newRow("other scheme") << QStringLiteral("[a link](file:///etc/passwd)") << QString();
    QTest::newRow("script") << QStringLiteral("[a link](javascript:alert(1))") << QString();
    QTest::newRow("data") << QStringLiteral("[a link](data:text/html,x)") << QString();
}

void TestPageEngine::linkOpensOutside()
{
    QFETCH(QString, markdown);
    QFETCH(QString, opened);
    QVERIFY(finished(m_display->loadContent(markdown)));
    const QVariantList center =
        m_engine
            ->value(QStringLiteral("(() => { const r = document.querySelector('#ct a')"
                                   ".getBoundingClientRect(); "
                                   "return [r.x + r.width / 2, r.y + r.height / 2]; })()"))
            .toList();
    QCOMPARE(center.size(), 2);
    m_engine->value(QStringLiteral("window.clicks = 0; window.addEventListener('click', () => "
                                   "{ ++window.clicks; })"));
    QTest::mouseClick(&m_engine->window(), Qt::LeftButton, {},
                      QPoint(center[0].toInt(), center[1].toInt()));
    ENGINE_TRY_COMPARE(m_engine->value(QStringLiteral("window.clicks")).toInt(), 1);
    if (opened.isEmpty()) {
        QVERIFY(m_workspace.urls.isEmpty());
    } else {
        ENGINE_TRY_COMPARE(m_workspace.urls.size(), 1);
        QCOMPARE(m_workspace.urls[0], QUrl(opened));
    }
    QVERIFY(
        m_engine->text(QStringLiteral("location.href")).startsWith(QStringLiteral("quellora-")));
}

void TestPageEngine::syntheticClicksOpenNothing()
{
    QVERIFY(finished(m_display->loadContent(QStringLiteral("[a](https://example.com/)"))));
    m_engine->value(QStringLiteral("document.querySelector('#ct a').click()"));
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('#ct a').innerText")),
             QStringLiteral("a"));
    QVERIFY(m_workspace.urls.isEmpty());
}

void TestPageEngine::copyButtonCopiesTheBlock()
{
    QGuiApplication::clipboard()->setText(QStringLiteral("before"));
    QVERIFY(finished(m_display->loadContent(QStringLiteral("```cpp\nint a;\n  int b;\n```"))));
    const QVariantList corner =
        m_engine
            ->value(QStringLiteral("(() => { const r = document.querySelector('pre')"
                                   ".getBoundingClientRect(); return [r.right, r.top]; })()"))
            .toList();
    QCOMPARE(corner.size(), 2);
    const QPoint button(corner[0].toInt() - 20, corner[1].toInt() + 18);
    // The layer receives the click once the button has been placed.
    QVERIFY(runUntil([&] {
        return m_engine
            ->value(QStringLiteral("document.elementFromPoint(%1, %2).parentElement === "
                                   "document.documentElement && "
                                   "document.elementFromPoint(%1, %2) !== document.body")
                        .arg(button.x())
                        .arg(button.y()))
            .toBool();
    }));
    QTest::mouseClick(&m_engine->window(), Qt::LeftButton, {}, button);
    ENGINE_TRY_COMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("int a;\n  int b;\n"));
    // The layer is no part of the answer.
    QVERIFY(
        !m_engine->text(QStringLiteral("document.body.innerText")).contains(QStringLiteral("Cop")));
}

void TestPageEngine::copyButtonWaitsForTheEndOfTheStream()
{
    const QString covered = QStringLiteral(
        "(() => { const r = document.querySelector('pre').getBoundingClientRect();"
        "return document.elementFromPoint(r.right - 20, r.top + 18).localName; })()");
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    renderer.handleStreamChunk(QStringLiteral("```cpp\nint a;\n```\n"));
    QVERIFY(runUntil([&] {
        return m_engine->value(QStringLiteral("!!document.querySelector('pre')")).toBool();
    }));
    m_engine->value(QStringLiteral("requestAnimationFrame(() => requestAnimationFrame(() => "
                                   "{ window.painted = true; }))"));
    QVERIFY(runUntil([&] { return m_engine->value(QStringLiteral("window.painted")).toBool(); }));
    QCOMPARE(m_engine->text(covered), QStringLiteral("pre"));
    renderer.handleStreamEnd();
    ENGINE_TRY_COMPARE(m_engine->text(covered), QStringLiteral("div"));
}

void TestPageEngine::loadsBeforeTheViewWait()
{
    ResponseView view;
    QSignalSpy finishedLoad(&view, &PageSurface::loadFinished);
    const auto id = view.load({"<p>early</p>"}, QString());
    QCoreApplication::processEvents();
    view.evaluate(QStringLiteral("1"));
    view.evaluatePaced([] { return QStringLiteral("2"); });
    QVERIFY(!view.item());
    QSignalSpy engineStarted(&view, &ResponseView::engineStarted);
    QQuickItem container;
    QQmlEngine::setContextForObject(&container, m_engine->window().engine()->rootContext());
    view.attachTo(&container);
    ENGINE_TRY_COMPARE(finishedLoad.size(), 1);
    QCOMPARE(finishedLoad[0][0].toULongLong(), id);
    QCOMPARE(engineStarted.size(), 1);
}

void TestPageEngine::largePageLoads()
{
    CaptureSession session = CaptureSession::create();
    // More than the engine accepts in an address.
    session.addNote(QString(2'200'000, QLatin1Char('n')));
    session.addTurn(QStringLiteral("p"), QStringLiteral("r"), QDateTime::currentDateTime());
    QVERIFY(finished(m_display->renderThread(session)));
    QVERIFY(m_engine->value(QStringLiteral("document.documentElement.outerHTML.length > 2.2e6"))
                .toBool());
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageEngine>)

#include "test_page_engine.moc"
