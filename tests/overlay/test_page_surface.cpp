#include "fakes/LogCapture.h"
#include "overlay/FakePageSurface.h"

#include <QTest>

using namespace quellora;

class TestPageSurface : public QObject
{
    Q_OBJECT

private slots:
    void loadsWithTheNextTurn();
    void newerLoadSupersedesOneThatHasNotStarted();
    void oneRenderAtATimeAndTheNewestOfTheWaiting();
    void scriptIsMadeWhenItRuns();
    void emptyScriptRunsNothing();
    void startedLoadDropsWaitingScripts();
    void lateReportOfADroppedScriptChangesNothing();
};

void TestPageSurface::loadsWithTheNextTurn()
{
    LogCapture log;
    FakePageSurface surface;
    const auto id = surface.load("<p>", QStringLiteral("go"));
    QVERIFY(surface.loads.isEmpty());
    QVERIFY(log.lines.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(surface.loads.size(), 1);
    QCOMPARE(surface.loads.first().first, id);
    QCOMPARE(surface.loads.first().second, QByteArray("<p>"));
    QCOMPARE(log.lines, QStringList{QStringLiteral("go")});
}

void TestPageSurface::newerLoadSupersedesOneThatHasNotStarted()
{
    LogCapture log;
    FakePageSurface surface;
    surface.load("1", QStringLiteral("first"));
    const auto second = surface.load("2", QStringLiteral("second"));
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
        surface.evaluateLatest([script] { return QString::fromLatin1(script); });
    surface.evaluate(QStringLiteral("other"));
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("other")}));
    surface.finishScript();
    QCOMPARE(surface.scripts.last(), QStringLiteral("c"));
    QCOMPARE(surface.scripts.size(), 3);
    surface.finishScript();
    QCOMPARE(surface.scripts.size(), 3);
    surface.evaluateLatest([=] { return QStringLiteral("d"); });
    QCOMPARE(surface.scripts.last(), QStringLiteral("d"));
}

void TestPageSurface::scriptIsMadeWhenItRuns()
{
    FakePageSurface surface;
    surface.runsAtOnce = false;
    QStringList made;
    for (const char *name : {"a", "b", "c"}) {
        surface.evaluateLatest([&made, name] {
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
    surface.evaluateLatest([] { return QString(); });
    QVERIFY(surface.scripts.isEmpty());
    surface.evaluateLatest([] { return QStringLiteral("a"); });
    QCOMPARE(surface.scripts, QStringList{QStringLiteral("a")});
}

void TestPageSurface::startedLoadDropsWaitingScripts()
{
    LogCapture log;
    FakePageSurface surface;
    surface.runsAtOnce = false;
    surface.evaluateLatest([=] { return QStringLiteral("a"); });
    surface.evaluateLatest([=] { return QStringLiteral("b"); });
    surface.load("page", {});
    QCoreApplication::processEvents();
    surface.evaluateLatest([=] { return QStringLiteral("c"); });
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("c")}));
}

void TestPageSurface::lateReportOfADroppedScriptChangesNothing()
{
    LogCapture log;
    FakePageSurface surface;
    surface.runsAtOnce = false;
    surface.evaluateLatest([=] { return QStringLiteral("a"); });
    const quint64 dropped = surface.tokens.last();
    surface.load("page", {});
    QCoreApplication::processEvents();
    surface.evaluateLatest([=] { return QStringLiteral("b"); });
    surface.evaluateLatest([=] { return QStringLiteral("c"); });
    surface.tokens.append(dropped);
    surface.finishScript();
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
}

QTEST_GUILESS_MAIN(TestPageSurface)
#include "test_page_surface.moc"
