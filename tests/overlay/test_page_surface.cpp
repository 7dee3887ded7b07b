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
        surface.evaluateLatest(QString::fromLatin1(script));
    surface.evaluate(QStringLiteral("other"));
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("other")}));
    surface.finishScript();
    QCOMPARE(surface.scripts.last(), QStringLiteral("c"));
    QCOMPARE(surface.scripts.size(), 3);
    surface.finishScript();
    QCOMPARE(surface.scripts.size(), 3);
    surface.evaluateLatest(QStringLiteral("d"));
    QCOMPARE(surface.scripts.last(), QStringLiteral("d"));
}

void TestPageSurface::startedLoadDropsWaitingScripts()
{
    LogCapture log;
    FakePageSurface surface;
    surface.runsAtOnce = false;
    surface.evaluateLatest(QStringLiteral("a"));
    surface.evaluateLatest(QStringLiteral("b"));
    surface.load("page", {});
    QCoreApplication::processEvents();
    surface.evaluateLatest(QStringLiteral("c"));
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("c")}));
}

void TestPageSurface::lateReportOfADroppedScriptChangesNothing()
{
    LogCapture log;
    FakePageSurface surface;
    surface.runsAtOnce = false;
    surface.evaluateLatest(QStringLiteral("a"));
    const quint64 dropped = surface.tokens.last();
    surface.load("page", {});
    QCoreApplication::processEvents();
    surface.evaluateLatest(QStringLiteral("b"));
    surface.evaluateLatest(QStringLiteral("c"));
    surface.tokens.append(dropped);
    surface.finishScript();
    QCOMPARE(surface.scripts, (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
}

QTEST_GUILESS_MAIN(TestPageSurface)
#include "test_page_surface.moc"
