#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "page/FakePageSurface.h"
#include "page/ResponseDisplay.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quellora;

class TestPageDisplay : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void loadContentLogsAndLoads();
    void countsCharactersAsReadersDo();
    void renderThreadShowsEntries();
    void emptyThreadClears();
    void screenshotOnlyThread();
    void pictureKeyIsAnotherForEachPage();
    void pictureThatCannotBeWrittenIsShownButNotOpened();
    void newerPageSupersedesOneBeingBuilt();
    void themeChangeWhileLoadingIsApplied();
    void alphaChangeWhileLoadingIsApplied();
    void failedNavigationsAreLogged();
    void applyThemePushes();
    void textThatIsNoColorIsIgnored();
    void throttleLimitsPushes();
    void throttleSchedulesTheRest();
    void scrollCommands();
    void scrollPosition_data();
    void scrollPosition();
    void findsInThePageOnShow();
    void malformedMessages_data();
    void malformedMessages();
    void longBodiesAreCut();
    void openScreenshotOpensPicturesOfThePageOnly();
    void previewsGoWithTheirThread();
    void tellsWhatIsOnThePage();
    void noteDelete();
    void showVersion();
    void links_data();
    void links();

private:
    bool shown(int count = 1)
    {
        return QTest::qWaitFor([&] { return m_surface->loads.size() >= count; }, 5000);
    }

    /// A press on the picture with that number in the page that was loaded last.
    void openPicture(qint64 index)
    {
        m_surface->post(QStringLiteral("openScreenshot"),
                        QVariantMap{{QStringLiteral("page"), m_surface->loads.last().first},
                                    {QStringLiteral("index"), index}});
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<FakePageSurface> m_surface;
    std::unique_ptr<FakeWorkspace> m_workspace;
    std::unique_ptr<ResponseDisplay> m_display;
    PillAlphaThrottle::Nanoseconds m_now{};
};

void TestPageDisplay::init()
{
    m_log = std::make_unique<LogCapture>();
    m_dir = std::make_unique<QTemporaryDir>();
    m_surface = std::make_unique<FakePageSurface>();
    m_workspace = std::make_unique<FakeWorkspace>();
    m_now = std::chrono::seconds(100);
    m_display = std::make_unique<ResponseDisplay>(
        *m_surface, *m_workspace, m_dir->path(), ResponseDisplay::Timing{[this] { return m_now; }});
}

void TestPageDisplay::cleanup()
{
    m_display.reset();
    m_surface.reset();
    m_log.reset();
}

void TestPageDisplay::loadContentLogsAndLoads()
{
    m_display->setCaptureHotkey(QStringLiteral("KEY"));
    m_display->setCurrentAlpha(0.5);
    m_display->setAppliedTheme(AppTheme::Light);
    m_display->setResponseTextColorHex(QStringLiteral("#8899aa"));
    m_display->loadContent(QStringLiteral("hello"));
    QCOMPARE(m_log->lines, QStringList{QStringLiteral("[OverlayWindowController] loadContent() — "
                                                      "building HTML for 5 char payload")});
    QVERIFY(m_surface->loads.isEmpty());
    QVERIFY(shown());
    QCOMPARE(m_log->lines.last(),
             QStringLiteral("[OverlayWindowController] Triggering WebView load"));
    QCOMPARE(m_surface->loads.last().second.html,
             responsepage::singleAnswerPage(
                 QStringLiteral("hello"),
                 {AppTheme::Light, 0.5, QStringLiteral("#8899aa"), QStringLiteral("KEY")}));
    QSignalSpy finished(m_display.get(), &ResponseDisplay::pageFinished);
    m_surface->finishLoad();
    QCOMPARE(m_log->lines.last(),
             QStringLiteral("[OverlayWindowController] WebView finished loading"));
    QCOMPARE(finished.size(), 1);
    QVERIFY(m_surface->scripts.isEmpty());
}

void TestPageDisplay::countsCharactersAsReadersDo()
{
    m_display->loadContent(QStringLiteral("e\u0301👩‍👩‍👧"));
    QVERIFY(m_log->lines[0].contains(QStringLiteral("for 2 char")));
}

void TestPageDisplay::renderThreadShowsEntries()
{
    CaptureSession session = CaptureSession::create();
    session.addNote(QStringLiteral("note"));
    session.addTurn(QStringLiteral("p"), QStringLiteral("r"), QDateTime::currentDateTime());
    m_display->renderThread(session);
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[OverlayWindowController] renderThread() — 1 notes, 1 "
                                        "turns")});
    QVERIFY(shown());
    QVERIFY(m_surface->page().contains(QStringLiteral("note-text")));
    QVERIFY(m_surface->page().contains(QStringLiteral(":\"r\"}}")));
}

void TestPageDisplay::emptyThreadClears()
{
    m_display->renderThread(CaptureSession::create());
    QVERIFY(m_log->contains(QStringLiteral("[OverlayWindowController] Content cleared")));
    QVERIFY(m_log->contains(QStringLiteral("[OverlayWindowController] loadContent() — building "
                                           "HTML for 0 char payload")));
    QVERIFY(shown());
    QVERIFY(m_surface->page().contains(QStringLiteral("{\"raw\":\"\"}")));
}

void TestPageDisplay::screenshotOnlyThread()
{
    CaptureSession session = CaptureSession::create();
    session.addScreenshot("AB", QDateTime::currentDateTime());
    m_display->renderThread(session);
    QVERIFY(shown());
    QVERIFY(m_surface->page().contains(QStringLiteral("empty-note")));
    const PageContent &page = m_surface->loads.last().second;
    QCOMPARE(page.pictures, (QHash<qint64, QByteArray>{{0, "AB"}}));
    QVERIFY(page.html.contains("src=\"quellora-page:picture/" + page.pictureKey + "/0\""));
}

void TestPageDisplay::pictureKeyIsAnotherForEachPage()
{
    CaptureSession session = CaptureSession::create();
    session.addScreenshot("AB", QDateTime::currentDateTime());
    QSet<QByteArray> keys;
    for (int i = 1; i <= 3; ++i) {
        m_display->renderThread(session);
        QVERIFY(shown(i));
        keys.insert(m_surface->loads.last().second.pictureKey);
        QCOMPARE(m_surface->loads.last().second.pictureKey.size(), 32);
    }
    QCOMPARE(keys.size(), 3);
}

void TestPageDisplay::pictureThatCannotBeWrittenIsShownButNotOpened()
{
    QFile inTheWay(m_dir->filePath(QStringLiteral("quellora-thread-preview")));
    QVERIFY(inTheWay.open(QIODevice::WriteOnly));
    CaptureSession session = CaptureSession::create();
    session.addScreenshot("AB", QDateTime::currentDateTime());
    session.addTurn(QStringLiteral("p"), QStringLiteral("r"), QDateTime::currentDateTime());
    m_display->renderThread(session);
    QVERIFY(shown());
    QVERIFY(m_surface->page().contains(QStringLiteral("<img")));
    QVERIFY(m_surface->page().contains(QStringLiteral("prompt-text")));
    QSignalSpy failed(m_display.get(), &ResponseDisplay::previewFailed);
    openPicture(0);
    QTRY_COMPARE(failed.size(), 1);
    QVERIFY(m_workspace->files.isEmpty());
    QCOMPARE(m_log->lines.filter(QStringLiteral("Could not create thread-preview")).size(), 1);
}

void TestPageDisplay::newerPageSupersedesOneBeingBuilt()
{
    const auto first = m_display->loadContent(QStringLiteral("one"));
    const auto second = m_display->loadContent(QStringLiteral("two"));
    QVERIFY(first != second);
    QVERIFY(shown());
    QCOMPARE(m_surface->loads.size(), 1);
    QVERIFY(m_surface->page().contains(QStringLiteral("{\"raw\":\"two\"}")));
    QSignalSpy finished(m_display.get(), &ResponseDisplay::pageFinished);
    m_surface->finishLoad();
    QCOMPARE(finished.first().first().toULongLong(), second);
}

void TestPageDisplay::themeChangeWhileLoadingIsApplied()
{
    m_display->loadContent(QStringLiteral("x"));
    m_display->setAppliedTheme(AppTheme::Light);
    QVERIFY(shown());
    QVERIFY(m_surface->page().contains(QStringLiteral("<body class=\"\">")));
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts.size(), 1);
    QVERIFY(m_surface->scripts[0].contains(QStringLiteral("className = 'light'")));
}

void TestPageDisplay::alphaChangeWhileLoadingIsApplied()
{
    m_display->loadContent(QStringLiteral("x"));
    m_display->setCurrentAlpha(0);
    QVERIFY(shown());
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, QStringList{responsepage::pillAlphaScript(0)});
}

void TestPageDisplay::failedNavigationsAreLogged()
{
    m_display->loadContent(QStringLiteral("x"));
    QVERIFY(shown());
    m_surface->failLoad(QStringLiteral("reason"), true);
    QCOMPARE(m_log->lines.last(), QStringLiteral("[OverlayWindowController] ERROR: WebView "
                                                 "provisional navigation failed: reason"));
    m_surface->failLoad(QStringLiteral("reason"), false);
    QCOMPARE(m_log->lines.last(), QStringLiteral("[OverlayWindowController] ERROR: WebView "
                                                 "navigation failed: reason"));
}

void TestPageDisplay::applyThemePushes()
{
    m_display->setResponseTextColorHex(QStringLiteral("#123456"));
    m_display->applyTheme();
    QVERIFY(m_surface->scripts.last().contains(QStringLiteral("'--text', '#123456'")));
    QVERIFY(m_surface->scripts.last().contains(QStringLiteral("className = ''")));
    m_display->setResponseTextColorHex(std::nullopt);
    m_display->applyTheme();
    QVERIFY(m_surface->scripts.last().contains(QStringLiteral("removeProperty('--text')")));
}

void TestPageDisplay::textThatIsNoColorIsIgnored()
{
    for (const char *text : {"red'}</style><script>", "", "#12", "#ggg", "#1234567", "#fff\n"}) {
        m_display->setResponseTextColorHex(QString::fromLatin1(text));
        QVERIFY2(!m_display->responseTextColorHex(), text);
    }
    for (const char *text : {"#fff", "#8899AA", "#8899aa80"}) {
        m_display->setResponseTextColorHex(QString::fromLatin1(text));
        QCOMPARE(m_display->responseTextColorHex(), QString::fromLatin1(text));
    }
}

void TestPageDisplay::throttleLimitsPushes()
{
    for (int i = 0; i < 20; ++i) {
        m_display->setCurrentAlpha(i / 20.0);
        m_display->pushPillAlphaLiveThrottled();
        m_now += std::chrono::milliseconds(1);
    }
    QCOMPARE(m_surface->scripts.size(), 1);
    QVERIFY(QTest::qWaitFor([&] { return m_surface->scripts.size() == 2; }, 5000));
    QCOMPARE(m_surface->scripts.last(), responsepage::pillAlphaScript(19 / 20.0));
    m_now += PillAlphaThrottle::interval;
    m_display->pushPillAlphaLiveThrottled();
    QCOMPARE(m_surface->scripts.size(), 3);
}

void TestPageDisplay::throttleSchedulesTheRest()
{
    PillAlphaThrottle::Nanoseconds now{0};
    QList<qint64> scheduled;
    int pushes = 0;
    PillAlphaThrottle throttle([&] { return now; },
                               [&](auto delay) { scheduled.append(delay ? delay->count() : -1); },
                               [&] { ++pushes; });
    throttle.request();
    QCOMPARE(pushes, 1);
    QCOMPARE(scheduled, QList<qint64>{-1});
    now += std::chrono::milliseconds(10);
    throttle.request();
    QCOMPARE(pushes, 1);
    QCOMPARE(scheduled.last(), PillAlphaThrottle::interval.count() - 10'000'000);
    now += std::chrono::milliseconds(24);
    throttle.fire();
    QCOMPARE(pushes, 2);
    // The scheduled push counts as the last one.
    now += std::chrono::milliseconds(10);
    throttle.request();
    QCOMPARE(pushes, 2);
    now += PillAlphaThrottle::interval;
    throttle.request();
    QCOMPARE(pushes, 3);
}

void TestPageDisplay::scrollCommands()
{
    m_display->scrollUp();
    m_display->scrollDown();
    m_display->scrollByPixels(-10);
    m_display->scrollToFraction(0.25);
    QCOMPARE(m_surface->scripts[0], QStringLiteral("document.body.scrollBy(0, -60.0);"));
    QCOMPARE(m_surface->scripts[1], QStringLiteral("document.body.scrollBy(0, 60.0);"));
    QCOMPARE(m_surface->scripts[2], QStringLiteral("document.body.scrollBy(0, -10.0);"));
    QVERIFY(m_surface->scripts[3].contains(QStringLiteral("extent * 0.25;")));
}

void TestPageDisplay::scrollPosition_data()
{
    QTest::addColumn<double>("top");
    QTest::addColumn<double>("height");
    QTest::addColumn<double>("visible");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<double>("ratio");
    QTest::addColumn<double>("fraction");
    QTest::newRow("middle") << 250.0 << 1000.0 << 500.0 << true << 0.5 << 0.5;
    QTest::newRow("fits") << 0.0 << 400.0 << 500.0 << false << 1.0 << 0.0;
    QTest::newRow("equal") << 0.0 << 500.0 << 500.0 << false << 1.0 << 0.0;
    QTest::newRow("beyond the end") << 900.0 << 1000.0 << 500.0 << true << 0.5 << 1.0;
    QTest::newRow("above the top") << -20.0 << 1000.0 << 500.0 << true << 0.5 << 0.0;
    QTest::newRow("less than a pixel") << 0.25 << 500.5 << 500.0 << true << 500.0 / 500.5 << 0.25;
    QTest::newRow("nothing") << 0.0 << 0.0 << 0.0 << false << 0.0 << 0.0;
}

void TestPageDisplay::scrollPosition()
{
    QFETCH(double, top);
    QFETCH(double, height);
    QFETCH(double, visible);
    QSignalSpy changed(m_display.get(), &ResponseDisplay::scrollPositionChanged);
    m_surface->post(QStringLiteral("scrollPosition"),
                    QVariantMap{{QStringLiteral("scrollTop"), top},
                                {QStringLiteral("scrollHeight"), height},
                                {QStringLiteral("clientHeight"), visible}});
    QCOMPARE(changed.size(), 1);
    QTEST(changed[0][0].toBool(), "enabled");
    QTEST(changed[0][1].toDouble(), "ratio");
    QTEST(changed[0][2].toDouble(), "fraction");
}

void TestPageDisplay::findsInThePageOnShow()
{
    QSignalSpy results(m_display.get(), &ResponseDisplay::findResultChanged);
    const auto post = [this](double page) {
        m_surface->post(QStringLiteral("findResult"), QVariantMap{{QStringLiteral("page"), page},
                                                                  {QStringLiteral("current"), 1},
                                                                  {QStringLiteral("total"), 2}});
    };
    m_display->loadContent(QStringLiteral("x"));
    QTRY_COMPARE(m_surface->loads.size(), 1);
    m_surface->finishLoad();
    // Nothing is being found.
    m_display->findNext();
    m_display->findPrevious();
    QVERIFY(m_surface->bridgeScripts.isEmpty());
    post(double(m_surface->loads.last().first));
    QVERIFY(results.isEmpty());

    m_display->find(QStringLiteral("\"a\" \\ %1\n"));
    QCOMPARE(m_surface->bridgeScripts.takeLast(),
             QStringLiteral("finding.search(...[\"\\\"a\\\" \\\\ %1\\n\",true])"));
    m_display->findNext();
    m_display->findPrevious();
    QCOMPARE(m_surface->bridgeScripts,
             QStringList({QStringLiteral("finding.step(1)"), QStringLiteral("finding.step(-1)")}));
    m_surface->bridgeScripts.clear();
    post(double(m_surface->loads.last().first) + 1);
    QVERIFY(results.isEmpty());
    post(double(m_surface->loads.last().first));
    QCOMPARE(results.size(), 1);
    QCOMPARE(results.last(), QVariantList({1, 2}));

    m_display->loadContent(QStringLiteral("y"));
    QTRY_COMPARE(m_surface->loads.size(), 2);
    m_surface->finishLoad();
    QCOMPARE(m_surface->bridgeScripts.size(), 1);
    QVERIFY(m_surface->bridgeScripts.takeLast().endsWith(QStringLiteral("false])")));

    // For the page that is being loaded, once.
    const QUuid entry = QUuid::createUuid();
    m_display->loadContent(QStringLiteral("z"));
    m_display->findInNextPage(QStringLiteral("b"), entry);
    m_surface->finishLoad();
    QVERIFY(m_surface->bridgeScripts.takeLast().endsWith(QStringLiteral("[\"b\",false])")));
    QTRY_COMPARE(m_surface->loads.size(), 3);
    m_surface->finishLoad();
    QCOMPARE(m_surface->bridgeScripts.takeLast(),
             QStringLiteral("finding.search(...[\"b\",true,\"%1\"])").arg(uuidText(entry)));
    m_surface->finishLoad();
    QVERIFY(m_surface->bridgeScripts.takeLast().endsWith(QStringLiteral("[\"b\",false])")));

    m_display->endFind();
    QCOMPARE(m_surface->bridgeScripts.takeLast(), QStringLiteral("finding.end()"));
    m_surface->finishLoad();
    QVERIFY(m_surface->bridgeScripts.isEmpty());
    post(double(m_surface->loads.last().first));
    QCOMPARE(results.size(), 1);
}

void TestPageDisplay::malformedMessages_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariant>("body");
    QTest::addColumn<QString>("logged");
    const auto row = [](const char *tag, const char *name, const QVariant &body, const char *text) {
        QTest::newRow(tag) << QString::fromLatin1(name) << body << QString::fromUtf8(text);
    };
    row("scroll text", "scrollPosition", QStringLiteral("x"), "x");
    row("scroll null", "scrollPosition", QVariant::fromValue(nullptr), "null");
    row("scroll incomplete", "scrollPosition", QVariantMap{{QStringLiteral("scrollTop"), 1}},
        "{\"scrollTop\":1}");
    row("scroll texts", "scrollPosition",
        QVariantMap{{QStringLiteral("scrollTop"), QStringLiteral("1")},
                    {QStringLiteral("scrollHeight"), 2},
                    {QStringLiteral("clientHeight"), 3}},
        "{\"clientHeight\":3,\"scrollHeight\":2,\"scrollTop\":\"1\"}");
    row("scroll endless", "scrollPosition",
        QVariantMap{{QStringLiteral("scrollTop"), qInf()},
                    {QStringLiteral("scrollHeight"), 2},
                    {QStringLiteral("clientHeight"), 3}},
        "{\"clientHeight\":3,\"scrollHeight\":2,\"scrollTop\":null}");
    const auto picture = [](const QVariant &page, const QVariant &index) {
        return QVariantMap{{QStringLiteral("page"), page}, {QStringLiteral("index"), index}};
    };
    row("open number", "openScreenshot", 3, "3");
    row("open path", "openScreenshot", QStringLiteral("/etc/passwd"), "/etc/passwd");
    row("open lines", "openScreenshot", QStringLiteral("/a\n[00:00:00.000] fake"),
        "/a [00:00:00.000] fake");
    row("open unknown", "openScreenshot", picture(1, 0), "{\"index\":0,\"page\":1}");
    row("open negative", "openScreenshot", picture(-1, 0), "{\"index\":0,\"page\":-1}");
    row("open texts", "openScreenshot", picture(1, QStringLiteral("0")),
        "{\"index\":\"0\",\"page\":1}");
    row("open fraction", "openScreenshot", picture(1, 0.5), "{\"index\":0.5,\"page\":1}");
    row("open huge", "openScreenshot", picture(1e300, 0), "{\"index\":0,\"page\":1e+300}");
    row("delete list", "noteDelete", QVariantList{1}, "[1]");
    row("delete no id", "noteDelete", QStringLiteral("123"), "123");
    row("delete braces", "noteDelete", QStringLiteral("{0A1B2C3D-0000-4000-8000-00000000ABCD}"),
        "{0A1B2C3D-0000-4000-8000-00000000ABCD}");
    const auto version = [](const QVariant &turn, const QVariant &position) {
        return QVariantMap{{QStringLiteral("turn"), turn}, {QStringLiteral("version"), position}};
    };
    const QString id = QStringLiteral("0A1B2C3D-0000-4000-8000-00000000ABCD");
    row("version number", "showVersion", 3, "3");
    row("version of no id", "showVersion", version(QStringLiteral("1"), 0),
        "{\"turn\":\"1\",\"version\":0}");
    row("version of a number", "showVersion", version(7, 0), "{\"turn\":7,\"version\":0}");
    row("version text", "showVersion", version(id, QStringLiteral("0")),
        "{\"turn\":\"0A1B2C3D-0000-4000-8000-00000000ABCD\",\"version\":\"0\"}");
    row("version fraction", "showVersion", version(id, 0.5),
        "{\"turn\":\"0A1B2C3D-0000-4000-8000-00000000ABCD\",\"version\":0.5}");
    const auto found = [](const QVariant &current, const QVariant &total) {
        return QVariantMap{{QStringLiteral("page"), 1},
                           {QStringLiteral("current"), current},
                           {QStringLiteral("total"), total}};
    };
    row("found text", "findResult", QStringLiteral("3 of 12"), "3 of 12");
    row("found incomplete", "findResult", QVariantMap{{QStringLiteral("total"), 1}},
        "{\"total\":1}");
    row("found beyond the end", "findResult", found(3, 2),
        "{\"current\":3,\"page\":1,\"total\":2}");
    row("found negative", "findResult", found(-1, 2), "{\"current\":-1,\"page\":1,\"total\":2}");
    row("found fraction", "findResult", found(1, 1.5), "{\"current\":1,\"page\":1,\"total\":1.5}");
    row("found texts", "findResult", found(QStringLiteral("1"), 2),
        "{\"current\":\"1\",\"page\":1,\"total\":2}");
    row("found too many", "findResult", found(1, 3e9),
        "{\"current\":1,\"page\":1,\"total\":3000000000}");
}

void TestPageDisplay::malformedMessages()
{
    QFETCH(QString, name);
    QFETCH(QVariant, body);
    QFETCH(QString, logged);
    QSignalSpy scrolled(m_display.get(), &ResponseDisplay::scrollPositionChanged);
    QSignalSpy deleted(m_display.get(), &ResponseDisplay::noteDeleteRequested);
    QSignalSpy requested(m_display.get(), &ResponseDisplay::versionRequested);
    m_surface->post(name, body);
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[OverlayWindowController] ERROR: Received malformed %1 "
                                        "message: %2")
                             .arg(name, logged)});
    QVERIFY(scrolled.isEmpty());
    QVERIFY(deleted.isEmpty());
    QVERIFY(requested.isEmpty());
    QVERIFY(m_workspace->files.isEmpty());
}

void TestPageDisplay::longBodiesAreCut()
{
    m_surface->post(QStringLiteral("noteDelete"), QString(100000, QLatin1Char('x')));
    QVERIFY(m_log->lines[0].size() < 1000);
}

void TestPageDisplay::openScreenshotOpensPicturesOfThePageOnly()
{
    CaptureSession session = CaptureSession::create();
    session.addScreenshot("AB", QDateTime::currentDateTime());
    session.addScreenshot("CD", QDateTime::currentDateTime());
    m_display->renderThread(session);
    QVERIFY(shown());
    // A page that is only shown writes nothing.
    QVERIFY(QDir(m_dir->path()).isEmpty());
    openPicture(0);
    QTRY_COMPARE(m_workspace->files.size(), 1);
    const QString path = m_workspace->files[0];
    QVERIFY(path.endsWith(uuidText(session.id) + QStringLiteral("/screenshot-0.jpg")));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("AB"));
    QCOMPARE(QFileInfo(path).dir().entryList(QDir::Files), QStringList{"screenshot-0.jpg"});
    openPicture(2);
    openPicture(-1);
    QCOMPARE(m_log->lines.filter(QStringLiteral("malformed openScreenshot")).size(), 2);
    m_surface->finishLoad();
    const auto first = m_surface->loads.last().first;
    const auto openOfFirst = [&](qint64 index) {
        m_surface->post(
            QStringLiteral("openScreenshot"),
            QVariantMap{{QStringLiteral("page"), first}, {QStringLiteral("index"), index}});
    };
    // While the next page is on its way, each page has its own pictures under the same numbers.
    CaptureSession other = CaptureSession::create();
    other.addScreenshot("EF", QDateTime::currentDateTime());
    m_display->renderThread(other);
    QVERIFY(shown(2));
    openOfFirst(1);
    QTRY_COMPARE(m_workspace->files.size(), 2);
    QVERIFY(
        m_workspace->files[1].endsWith(uuidText(session.id) + QStringLiteral("/screenshot-1.jpg")));
    openPicture(0);
    QTRY_COMPARE(m_workspace->files.size(), 3);
    QVERIFY(
        m_workspace->files[2].endsWith(uuidText(other.id) + QStringLiteral("/screenshot-0.jpg")));
    m_surface->finishLoad();
    openOfFirst(0);
    QCOMPARE(m_log->lines.filter(QStringLiteral("malformed openScreenshot")).size(), 3);
    QCOMPARE(m_workspace->files.size(), 3);
}

void TestPageDisplay::previewsGoWithTheirThread()
{
    CaptureSession session = CaptureSession::create();
    session.addScreenshot("AB", QDateTime::currentDateTime());
    m_display->renderThread(session);
    QVERIFY(shown());
    QVERIFY(m_display->showsScreenshot(session.id, 0));
    QVERIFY(!m_display->showsScreenshot(session.id, 1));
    QVERIFY(!m_display->showsScreenshot(QUuid::createUuid(), 0));
    QString path;
    const auto open = [&] {
        m_workspace->files.clear();
        openPicture(0);
        const bool isOpened = QTest::qWaitFor([&] { return !m_workspace->files.isEmpty(); }, 5000);
        path = m_workspace->files.value(0);
        return isOpened && QFile::exists(path);
    };
    QVERIFY(open());
    m_display->removePreview(session.id, 0);
    QTRY_VERIFY(!QFile::exists(path));
    QVERIFY(open());
    m_display->removePreviews({session.id});
    QTRY_VERIFY(!QFile::exists(path));
    QVERIFY(open());
    // At sign-out and at quit.
    m_display.reset();
    QVERIFY(QDir(m_dir->path()).isEmpty());
}

void TestPageDisplay::tellsWhatIsOnThePage()
{
    using Content = ResponseDisplay::Content;
    QSignalSpy changed(m_display.get(), &ResponseDisplay::contentChanged);
    QCOMPARE(m_display->content(), Content::Hint);
    m_display->loadContent(QString());
    QVERIFY(changed.isEmpty());
    m_display->loadContent(QStringLiteral("**Error:**"));
    QCOMPARE(m_display->content(), Content::Message);
    CaptureSession session = CaptureSession::create();
    m_display->renderThread(session);
    QCOMPARE(m_display->content(), Content::Hint);
    session.addScreenshot("AB", QDateTime::currentDateTime());
    m_display->renderThread(session);
    QCOMPARE(m_display->content(), Content::Thread);
    m_display->loadContent(QStringLiteral("x"));
    m_display->loadStreamingShell(session, QStringLiteral("q"), QDateTime::currentDateTime(), {});
    QCOMPARE(m_display->content(), Content::Thread);
    QCOMPARE(changed.size(), 5);
}

void TestPageDisplay::noteDelete()
{
    QSignalSpy deleted(m_display.get(), &ResponseDisplay::noteDeleteRequested);
    const QUuid id = QUuid::createUuid();
    m_surface->post(QStringLiteral("noteDelete"), uuidText(id));
    QCOMPARE(deleted.size(), 1);
    QCOMPARE(deleted[0][0].toUuid(), id);
}

void TestPageDisplay::showVersion()
{
    QSignalSpy requested(m_display.get(), &ResponseDisplay::versionRequested);
    const QUuid id = QUuid::createUuid();
    m_surface->post(
        QStringLiteral("showVersion"),
        QVariantMap{{QStringLiteral("turn"), uuidText(id)}, {QStringLiteral("version"), 2}});
    QCOMPARE(requested.size(), 1);
    QCOMPARE(requested[0][0].toUuid(), id);
    QCOMPARE(requested[0][1].toLongLong(), 2);
}

void TestPageDisplay::links_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<bool>("opens");
    QTest::newRow("https") << QStringLiteral("https://example.com/a?b#c") << true;
    QTest::newRow("http") << QStringLiteral("HTTP://example.com") << true;
    QTest::newRow("mail") << QStringLiteral("mailto:a@example.com") << true;
    QTest::newRow("file") << QStringLiteral("file:///etc/passwd") << false;
    QTest::newRow("script") << QStringLiteral("javascript:alert(1)") << false;
    QTest::newRow("relative") << QStringLiteral("foo") << false;
    QTest::newRow("no host") << QStringLiteral("https:///x") << false;
    QTest::newRow("custom") << QStringLiteral("vscode://x/y") << false;
    QTest::newRow("empty") << QString() << false;
}

void TestPageDisplay::links()
{
    QFETCH(QString, address);
    QFETCH(bool, opens);
    Q_EMIT m_surface->linkActivated(address);
    QCOMPARE(m_workspace->urls.size(), opens ? 1 : 0);
    if (opens)
        QCOMPARE(m_workspace->urls[0], QUrl(address));
}

QUELLORA_TEST(QCoreApplication, TestPageDisplay)
#include "test_page_display.moc"
