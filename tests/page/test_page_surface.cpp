#include "fakes/LogCapture.h"
#include "page/FakePageSurface.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;
using namespace std::chrono_literals;

class TestPageSurface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loadsWithTheNextTurn();
    void newerLoadSupersedesOneThatHasNotStarted();
    void oneRenderAtATimeAndTheNewestOfTheWaiting();
    void scriptIsMadeWhenItRuns();
    void emptyScriptRunsNothing();
    void startedLoadDropsWaitingScripts();
    void lateReportOfADroppedScriptChangesNothing();
    void pauseGrowsWithTheTimeOfAScript_data();
    void pauseGrowsWithTheTimeOfAScript();
    void tellsWhenAScriptHasRun();
    void slowScriptIsFollowedByAPause();
    void loadEndsAPause();
    void heldPageKeepsTheNewestScriptWaiting();
    void heldPageKeepsTheNewestLoadWaiting();
    void processThatEndsIsStartedAgain();
    void processThatKeepsEndingIsLeftAlone();
    void loadAfterALostPageStarts();
    void newLoadTakesThePlaceOfARestart();
    void processWithoutAPageIsNotRestarted();
    void scriptLostWhileLoadingHoldsNobodyUp();
    void floodOfMessagesIsLoggedOnce();
    void silentPageIsShownAsText();
    void pageThatAnswersIsLeftAlone();
    void onlyPagesAtWorkOrInSightAreAsked();
    void processMayTakeLongToStart();
    void longTextMayTakeLongAfterARestart();
};

void TestPageSurface::silentPageIsShownAsText()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"page"}, QStringLiteral("load"));
    QCoreApplication::processEvents();
    surface.passSecond();
    surface.answer();
    surface.finishLoad();
    surface.evaluate(QStringLiteral("stuck"));
    QSignalSpy ended(&surface, &PageSurface::renderProcessTerminated);
    for (int second = 0; second <= SilenceWatch::patience; ++second) {
        QCOMPARE(ended.size(), 0);
        surface.passSecond();
    }
    QCOMPARE(ended.size(), 1);
    QCOMPARE(surface.restarts, 0);
    QCoreApplication::processEvents();
    QCOMPARE(surface.restarts, 1);
    QVERIFY(surface.wasRestartedAsText);
    QCOMPARE(log.lines.value(1), QStringLiteral("[ResponseView] ERROR: The page does not answer "
                                                "any more, ending its process"));
    // Only this page: one that merely lost its process is rendered again.
    surface.load({"next"}, QStringLiteral("load"));
    QCoreApplication::processEvents();
    surface.finishLoad();
    surface.crash();
    QCoreApplication::processEvents();
    QCOMPARE(surface.restarts, 2);
    QVERIFY(!surface.wasRestartedAsText);
}

void TestPageSurface::pageThatAnswersIsLeftAlone()
{
    LogCapture log;
    FakePageSurface surface;
    surface.isOnScreen = true;
    surface.load({"page"}, QStringLiteral("load"));
    QCoreApplication::processEvents();
    for (int second = 0; second < 100; ++second) {
        surface.passSecond();
        // Slow, but alive.
        if (second % SilenceWatch::patience == SilenceWatch::patience - 1)
            surface.answer();
    }
    QCOMPARE(surface.questions.size(), 100);
    QCOMPARE(log.lines, QStringList{QStringLiteral("load")});
}

void TestPageSurface::onlyPagesAtWorkOrInSightAreAsked()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"page"}, QStringLiteral("load"));
    QCoreApplication::processEvents();
    surface.passSecond();
    surface.answer();
    // A page that loads may lose the question, so it is asked again.
    surface.passSecond();
    QCOMPARE(surface.questions.size(), 2);
    surface.answer();
    surface.finishLoad();
    surface.passSecond();
    QCOMPARE(surface.questions.size(), 3);
    surface.answer();
    surface.passSecond();
    QCOMPARE(surface.questions.size(), 3);
    for (const bool isBridge : {false, true}) {
        const auto asked = surface.questions.size();
        if (isBridge)
            surface.evaluateInBridge(QStringLiteral("script"));
        else
            surface.evaluate(QStringLiteral("script"));
        surface.passSecond();
        QCOMPARE(surface.questions.size(), asked + 1);
        surface.answer();
        surface.passSecond();
        QCOMPARE(surface.questions.size(), asked + 1);
    }
    surface.isOnScreen = true;
    surface.passSecond();
    surface.passSecond();
    QCOMPARE(surface.questions.size(), 7);
}

void TestPageSurface::processMayTakeLongToStart()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"page"}, QStringLiteral("load"));
    QCoreApplication::processEvents();
    QSignalSpy ended(&surface, &PageSurface::renderProcessTerminated);
    for (int second = 0; second < SilenceWatch::startPatience; ++second)
        surface.passSecond();
    QCOMPARE(ended.size(), 0);
    surface.passSecond();
    QCOMPARE(ended.size(), 1);
}

void TestPageSurface::longTextMayTakeLongAfterARestart()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"page"}, QStringLiteral("load"));
    QCoreApplication::processEvents();
    surface.crash();
    QCoreApplication::processEvents();
    QSignalSpy ended(&surface, &PageSurface::renderProcessTerminated);
    surface.passSecond();
    surface.answer();
    for (int second = 0; second < SilenceWatch::startPatience; ++second)
        surface.passSecond();
    QCOMPARE(ended.size(), 0);
    surface.answer();
    surface.finishLoad();
    surface.passSecond();
    surface.answer();
    surface.evaluate(QStringLiteral("stuck"));
    for (int second = 0; second <= SilenceWatch::patience; ++second) {
        QCOMPARE(ended.size(), 0);
        surface.passSecond();
    }
    QCOMPARE(ended.size(), 1);
}

void TestPageSurface::loadsWithTheNextTurn()
{
    LogCapture log;
    FakePageSurface surface;
    const auto id = surface.load({"<p>"}, QStringLiteral("go"));
    QVERIFY(surface.loads.isEmpty());
    QVERIFY(log.lines.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(surface.loads.size(), 1);
    QCOMPARE(surface.loads.first().first, id);
    QCOMPARE(surface.loads.first().second.html, QByteArray("<p>"));
    QCOMPARE(log.lines, QStringList{QStringLiteral("go")});
}

void TestPageSurface::newerLoadSupersedesOneThatHasNotStarted()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"1"}, QStringLiteral("first"));
    const auto second = surface.load({"2"}, QStringLiteral("second"));
    QCoreApplication::processEvents();
    QCOMPARE(surface.loads.size(), 1);
    QCOMPARE(surface.loads.first().first, second);
    QCOMPARE(log.lines, QStringList{QStringLiteral("second")});
}

void TestPageSurface::oneRenderAtATimeAndTheNewestOfTheWaiting()
{
    FakePageSurface surface;
    surface.runsAtOnce = false;
    for (const char *script : {"a", "b", "c"})
        surface.evaluatePaced([script] { return QString::fromLatin1(script); });
    surface.evaluate(QStringLiteral("other"));
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("other")}));
    surface.finishScript();
    QCOMPARE(surface.scripts.last(), QStringLiteral("c"));
    QCOMPARE(surface.scripts.size(), 3);
    surface.finishScript();
    QCOMPARE(surface.scripts.size(), 3);
    surface.evaluatePaced([=] { return QStringLiteral("d"); });
    QCOMPARE(surface.scripts.last(), QStringLiteral("d"));
}

void TestPageSurface::scriptIsMadeWhenItRuns()
{
    FakePageSurface surface;
    surface.runsAtOnce = false;
    QStringList made;
    for (const char *name : {"a", "b", "c"}) {
        surface.evaluatePaced([&made, name] {
            made.append(QString::fromLatin1(name));
            return made.last();
        });
    }
    QCOMPARE(made, QStringList{QStringLiteral("a")});
    surface.finishScript();
    QCOMPARE(made, (QStringList{QStringLiteral("a"), QStringLiteral("c")}));
}

void TestPageSurface::emptyScriptRunsNothing()
{
    FakePageSurface surface;
    surface.runsAtOnce = false;
    surface.evaluatePaced([] { return QString(); });
    QVERIFY(surface.scripts.isEmpty());
    surface.evaluatePaced([] { return QStringLiteral("a"); });
    QCOMPARE(surface.scripts, QStringList{QStringLiteral("a")});
}

void TestPageSurface::startedLoadDropsWaitingScripts()
{
    LogCapture log;
    FakePageSurface surface;
    surface.runsAtOnce = false;
    surface.evaluatePaced([=] { return QStringLiteral("a"); });
    surface.evaluatePaced([=] { return QStringLiteral("b"); });
    surface.load({"page"}, {});
    QCoreApplication::processEvents();
    surface.evaluatePaced([=] { return QStringLiteral("c"); });
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("c")}));
}

void TestPageSurface::lateReportOfADroppedScriptChangesNothing()
{
    LogCapture log;
    FakePageSurface surface;
    surface.runsAtOnce = false;
    surface.evaluatePaced([=] { return QStringLiteral("a"); });
    const quint64 dropped = surface.tokens.last();
    surface.load({"page"}, {});
    QCoreApplication::processEvents();
    surface.evaluatePaced([=] { return QStringLiteral("b"); });
    surface.evaluatePaced([=] { return QStringLiteral("c"); });
    surface.tokens.append(dropped);
    surface.finishScript();
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
}

void TestPageSurface::pauseGrowsWithTheTimeOfAScript_data()
{
    QTest::addColumn<int>("took");
    QTest::addColumn<int>("pause");
    QTest::newRow("at once") << 0 << 0;
    QTest::newRow("within a frame") << 16 << 0;
    QTest::newRow("slower") << 20 << 40;
    QTest::newRow("very slow") << 900 << 1800;
}

void TestPageSurface::pauseGrowsWithTheTimeOfAScript()
{
    QFETCH(int, took);
    QFETCH(int, pause);
    QCOMPARE(ScriptPacer::pauseAfter(std::chrono::milliseconds(took)).count(),
             std::chrono::nanoseconds(std::chrono::milliseconds(pause)).count());
}

void TestPageSurface::tellsWhenAScriptHasRun()
{
    FakePageSurface surface;
    surface.runsAtOnce = false;
    QStringList run;
    const auto request = [&](const char *name) {
        surface.evaluatePaced([name] { return QString::fromLatin1(name); },
                              [&run, name] { run.append(QString::fromLatin1(name)); });
    };
    for (const char *name : {"a", "b", "c"})
        request(name);
    QVERIFY(run.isEmpty());
    surface.finishScript();
    surface.finishScript();
    // The request in between has been replaced.
    QCOMPARE(run, (QStringList{QStringLiteral("a"), QStringLiteral("c")}));
    request("dropped");
    surface.crash();
    surface.finishScript();
    QCOMPARE(run.size(), 2);
}

void TestPageSurface::slowScriptIsFollowedByAPause()
{
    FakePageSurface surface;
    surface.runsAtOnce = false;
    surface.evaluatePaced([] { return QStringLiteral("a"); });
    surface.evaluatePaced([] { return QStringLiteral("b"); });
    surface.now += 20ms;
    surface.finishScript();
    QCOMPARE(surface.scripts, QStringList{QStringLiteral("a")});
    surface.evaluatePaced([] { return QStringLiteral("c"); });
    QCOMPARE(surface.scripts, QStringList{QStringLiteral("a")});
    // After the pause, the newest waiting request runs.
    QTRY_COMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("c")}));
}

void TestPageSurface::loadEndsAPause()
{
    LogCapture log;
    FakePageSurface surface;
    surface.runsAtOnce = false;
    surface.evaluatePaced([] { return QStringLiteral("a"); });
    surface.now += 500ms;
    surface.finishScript();
    surface.load({"page"}, {});
    QCoreApplication::processEvents();
    surface.evaluatePaced([] { return QStringLiteral("b"); });
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
}

void TestPageSurface::heldPageKeepsTheNewestScriptWaiting()
{
    FakePageSurface surface;
    surface.setHeld(true);
    for (const char *script : {"a", "b"})
        surface.evaluatePaced([script] { return QString::fromLatin1(script); });
    surface.evaluate(QStringLiteral("scroll"));
    QCOMPARE(surface.scripts, QStringList{QStringLiteral("scroll")});
    surface.setHeld(false);
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("scroll"), QStringLiteral("b")}));
    surface.setHeld(false);
    QCOMPARE(surface.scripts.size(), 2);
}

void TestPageSurface::heldPageKeepsTheNewestLoadWaiting()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"1"}, QStringLiteral("first"));
    surface.setHeld(true);
    const auto second = surface.load({"2"}, QStringLiteral("second"));
    QCoreApplication::processEvents();
    QVERIFY(surface.loads.isEmpty());
    surface.setHeld(false);
    QCOMPARE(surface.loads.size(), 1);
    QCOMPARE(surface.loads.first().first, second);
    QCOMPARE(log.lines, QStringList{QStringLiteral("second")});
}

void TestPageSurface::processThatEndsIsStartedAgain()
{
    LogCapture log;
    FakePageSurface surface;
    QSignalSpy ended(&surface, &PageSurface::renderProcessTerminated);
    surface.load({"page"}, {});
    QCoreApplication::processEvents();
    surface.runsAtOnce = false;
    surface.evaluatePaced([] { return QStringLiteral("a"); });
    surface.crash();
    QCOMPARE(ended.size(), 1);
    QVERIFY(!surface.isPageLost());
    QCOMPARE(surface.restarts, 0); // not inside the engine's report
    QCoreApplication::processEvents();
    QCOMPARE(surface.restarts, 1);
    QCOMPARE(log.lines.last(), QStringLiteral("[ResponseView] ERROR: The page's process ended "
                                              "(killed), loading the page again"));
    // The script that was running is gone with its page.
    surface.evaluatePaced([] { return QStringLiteral("b"); });
    QCOMPARE(surface.scripts.last(), QStringLiteral("b"));
}

void TestPageSurface::processThatKeepsEndingIsLeftAlone()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"page"}, {});
    QCoreApplication::processEvents();
    log.clear();
    for (int i = 0; i < 4; ++i) {
        surface.crash();
        QCoreApplication::processEvents();
        surface.now += 9s;
    }
    QCOMPARE(surface.restarts, 3);
    QVERIFY(surface.isPageLost());
    QCOMPARE(log.lines.size(), 4);
    QCOMPARE(log.lines.last(), QStringLiteral("[ResponseView] ERROR: The page's process ended "
                                              "(killed), too often: the page stays empty until the "
                                              "next one"));
}

void TestPageSurface::loadAfterALostPageStarts()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"page"}, {});
    QCoreApplication::processEvents();
    for (int i = 0; i < 4; ++i)
        surface.crash();
    QVERIFY(surface.isPageLost());
    surface.load({"next"}, {});
    QCoreApplication::processEvents();
    QVERIFY(!surface.isPageLost());
    QCOMPARE(surface.loads.size(), 2);
    // The first of the restarts is forgotten after half a minute.
    const int before = surface.restarts;
    surface.now += 30s;
    surface.crash();
    QCoreApplication::processEvents();
    QCOMPARE(surface.restarts, before + 1);
    QVERIFY(!surface.isPageLost());
}

void TestPageSurface::newLoadTakesThePlaceOfARestart()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"page"}, {});
    QCoreApplication::processEvents();
    surface.load({"next"}, {});
    surface.crash();
    QCoreApplication::processEvents();
    QCOMPARE(surface.loads.size(), 2);
    QCOMPARE(surface.restarts, 0);
}

void TestPageSurface::processWithoutAPageIsNotRestarted()
{
    LogCapture log;
    FakePageSurface surface;
    surface.crash();
    QCoreApplication::processEvents();
    QCOMPARE(surface.restarts, 0);
    QVERIFY(!surface.isPageLost());
}

void TestPageSurface::scriptLostWhileLoadingHoldsNobodyUp()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load({"page"}, {});
    QCoreApplication::processEvents();
    surface.crash();
    surface.runsAtOnce = false;
    // There is no page to run it, so it never reports.
    surface.evaluatePaced([] { return QStringLiteral("lost"); });
    QCoreApplication::processEvents();
    surface.finishLoad();
    surface.evaluatePaced([] { return QStringLiteral("shown"); });
    QCOMPARE(surface.scripts.last(), QStringLiteral("shown"));
}

void TestPageSurface::floodOfMessagesIsLoggedOnce()
{
    LogCapture log;
    FakePageSurface surface;
    QSignalSpy messages(&surface, &PageSurface::message);
    const auto post = [&](int count) {
        messages.clear();
        for (int i = 0; i < count; ++i)
            surface.post(QStringLiteral("scrollPosition"), i);
        return messages.size();
    };
    QCOMPARE(post(500), 500);
    QVERIFY(log.lines.isEmpty());
    // A flood that continues from second to second counts as one.
    QCOMPARE(post(1000), 0);
    for (int second = 0; second < 5; ++second) {
        surface.now += 1s;
        QCOMPARE(post(1000), 500);
    }
    const QString line = QStringLiteral("[ResponseView] ERROR: The page posts more than 500 "
                                        "messages a second, dropping the rest");
    QCOMPARE(log.lines, QStringList{line});
    // After a second within the limit, or a pause, the next flood is logged again.
    surface.now += 1s;
    QCOMPARE(post(500), 500);
    surface.now += 1s;
    QCOMPARE(post(501), 500);
    QCOMPARE(log.lines, (QStringList{line, line}));
    surface.now += 60s;
    QCOMPARE(post(501), 500);
    QCOMPARE(log.lines.size(), 3);
}

QUELLORA_TEST(QCoreApplication, TestPageSurface)
#include "test_page_surface.moc"
