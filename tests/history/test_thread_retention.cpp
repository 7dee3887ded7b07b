#include "fakes/FakeThreadLibrary.h"
#include "fakes/LogCapture.h"
#include "history/ThreadController.h"
#include "history/ThreadRetention.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;
using namespace std::chrono_literals;

namespace {

const QDateTime noon(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);

/// Threads in memory, and clocks that the test moves.
struct Fixture
{
    void start()
    {
        retention = std::make_unique<ThreadRetention>(
            settings, library, history,
            RetentionClocks{[this] { return now; }, [this] { return steady; }});
    }
    QUuid add(const QString &title, int daysAgo)
    {
        return library.add(title, noon.addDays(-daysAgo)).id;
    }
    /// What is still stored once the deletions are over.
    QStringList titles()
    {
        QCoreApplication::processEvents();
        QStringList all;
        for (const CaptureSession &session : std::as_const(library.sessions))
            all.append(session.previewText());
        all.sort();
        return all;
    }
    void pass(std::chrono::seconds time)
    {
        now = now.addSecs(time.count());
        steady += time;
    }

    LogCapture log;
    QDateTime now = noon;
    std::chrono::steady_clock::time_point steady;
    JsonUserDefaults defaults;
    Settings settings{defaults};
    FakeThreadLibrary library;
    ThreadController threads{settings, nullptr};
    PendingRemovals removals;
    HistoryController history{library, threads, removals};
    std::unique_ptr<ThreadRetention> retention;
};

} // namespace

class TestThreadRetention : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void nothingIsDeletedByDefault()
    {
        Fixture f;
        f.add("ancient", 5000);
        f.start();
        f.retention->look();
        QCOMPARE(f.titles(), QStringList("ancient"));
        QVERIFY(f.library.calls.isEmpty());
    }

    void daysAreNumbersInRange()
    {
        QCOMPARE(ThreadRetention::daysIn("30"), 30);
        QCOMPARE(ThreadRetention::daysIn(" 1 "), 1);
        QCOMPARE(ThreadRetention::daysIn("3650"), 3650);
        for (const char *text : {"", "0", "-3", "3651", "1.5", "ten", "99999999999", "30 days"})
            QVERIFY2(!ThreadRetention::daysIn(text), text);
        // Such a text in the store deletes nothing.
        Fixture f;
        f.settings.setKeepThreadsDays("0");
        f.add("ancient", 5000);
        f.start();
        QCOMPARE(f.titles(), QStringList("ancient"));
    }

    void olderThreadsAreDeletedAtTheStart()
    {
        Fixture f;
        f.settings.setKeepThreadsDays("30");
        f.add("older", 31);
        f.add("on the limit", 30);
        f.add("newer", 29);
        f.start();
        QCOMPARE(f.titles(), QStringList({"newer", "on the limit"}));
        QCOMPARE(f.library.limits, QList<QDateTime>{noon.addDays(-30)});
        QVERIFY(f.log.contains("[ThreadRetention] 1 old session(s) deleted"));
    }

    void olderThreadsAreDeletedEveryHour()
    {
        Fixture f;
        f.settings.setKeepThreadsDays("30");
        f.add("older soon", 29);
        f.start();
        QCOMPARE(f.titles(), QStringList("older soon"));
        for (int hour = 0; hour < 25; ++hour) {
            f.pass(1h);
            f.retention->look();
        }
        QCOMPARE(f.titles(), QStringList());
    }

    void settingIsInForceAtOnce()
    {
        Fixture f;
        f.add("old", 40);
        f.add("older", 60);
        f.start();
        f.settings.setKeepThreadsDays("50");
        QCOMPARE(f.titles(), QStringList("old"));
        f.settings.setKeepThreadsDays("30");
        QCOMPARE(f.titles(), QStringList());
        f.settings.setKeepThreadsDays({});
        f.add("ancient", 5000);
        f.retention->look();
        QCOMPARE(f.titles(), QStringList("ancient"));
    }

    void threadsInUseStay()
    {
        Fixture f;
        const QUuid current = f.add("current", 40);
        const QUuid answering = f.add("answering", 40);
        const QUuid deleted = f.add("can be undone", 40);
        f.add("loading", 40);
        f.add("goes", 40);
        f.history.historyButtonClicked();
        QTRY_VERIFY(!f.history.isLoading());
        f.threads.openFromHistory(f.library.sessions.value(current));
        f.threads.retain(answering);
        f.history.deleteSession(deleted);
        f.history.loadSession(f.library.sessions.key(
            *std::find_if(f.library.sessions.begin(), f.library.sessions.end(),
                          [](const auto &each) { return each.previewText() == "loading"; })));
        f.settings.setKeepThreadsDays("30");
        f.start();
        QCOMPARE(f.titles(), QStringList({"answering", "can be undone", "current", "loading"}));
    }

    void clockThatWasSetDeletesNothing()
    {
        Fixture f;
        f.settings.setKeepThreadsDays("30");
        f.add("fresh", 1);
        f.start();
        // A year ahead by mistake.
        f.pass(1h);
        f.now = f.now.addYears(1);
        f.retention->look();
        QCOMPARE(f.titles(), QStringList("fresh"));
        QVERIFY(f.log.contains("[ThreadRetention] The clock was set or the machine slept; old "
                               "threads stay for another hour"));
        // It is put right, which is a jump as well.
        f.pass(1h);
        f.now = f.now.addYears(-1);
        f.retention->look();
        f.add("old", 40);
        f.pass(1h);
        f.retention->look();
        QCOMPARE(f.titles(), QStringList("fresh"));
    }

    void threadsFromTheFutureStay()
    {
        Fixture f;
        f.settings.setKeepThreadsDays("1");
        f.add("tomorrow", -1);
        f.start();
        QCOMPARE(f.titles(), QStringList("tomorrow"));
    }

    void openListIsReadAgain()
    {
        Fixture f;
        f.add("older", 31);
        f.add("newer", 1);
        f.history.historyButtonClicked();
        QTRY_COMPARE(f.history.historySessions().size(), 2);
        f.settings.setKeepThreadsDays("30");
        f.start();
        QTRY_COMPARE(f.history.historySessions().size(), 1);
        // Nothing more to do: the list is left alone.
        const int lists = f.library.lists;
        f.retention->look();
        QCoreApplication::processEvents();
        QCOMPARE(f.library.lists, lists);
    }

    void failuresAreLogged()
    {
        Fixture f;
        f.settings.setKeepThreadsDays("30");
        f.add("older", 31);
        f.library.failure = StoreError{StoreError::Kind::File, {}, 0, "not permitted"};
        f.start();
        QCOMPARE(f.titles(), QStringList("older"));
        QVERIFY(f.log.contains("[ThreadRetention] ERROR: Failed to delete 1 old session(s), the "
                               "first: not permitted"));
        f.library.listError = StoreError{StoreError::Kind::File, {}, 0, "no folder"};
        f.retention->look();
        QCoreApplication::processEvents();
        QVERIFY(
            f.log.contains("[ThreadRetention] ERROR: Failed to look for old threads: no folder"));
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadRetention)
#include "test_thread_retention.moc"
