#include "history/PendingRemovals.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace quellora;
using namespace std::chrono_literals;

/// Removals by name, on a clock that the test moves.
class TestPendingRemovals : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_events.clear();
        m_now = {};
        m_removals = std::make_unique<PendingRemovals>([this] { return m_now; });
    }

    void removalIsCommittedAtItsDeadline()
    {
        remove("a");
        QCOMPARE(m_removals->text(), QString("a"));
        m_now += 9999ms;
        m_removals->commitDue();
        QVERIFY(m_events.isEmpty());
        QSignalSpy changed(m_removals.get(), &PendingRemovals::changed);
        m_now += 1ms;
        m_removals->commitDue();
        QCOMPARE(m_events, QStringList("commit a"));
        QCOMPARE(changed.size(), 1);
        QVERIFY(m_removals->isEmpty());
        QCOMPARE(m_removals->text(), QString());
        m_removals->undo();
        m_removals->commitAll();
        QCOMPARE(m_events, QStringList("commit a"));
    }

    void timerCommits()
    {
        remove("a");
        m_now += 10s;
        // The timer was started for ten seconds of this clock; another removal starts it anew.
        remove("b");
        QTRY_COMPARE(m_events, QStringList("commit a"));
        QCOMPARE(m_removals->text(), QString("b"));
    }

    void undoTakesTheLatestBackThenTheOneBefore()
    {
        remove("a");
        m_now += 4s;
        remove("b");
        m_removals->undo();
        QCOMPARE(m_events, QStringList("undo b"));
        QCOMPARE(m_removals->text(), QString("a"));
        m_removals->undo();
        QCOMPARE(m_events, QStringList({"undo b", "undo a"}));
        QVERIFY(m_removals->isEmpty());
    }

    void eachHasItsOwnDeadline()
    {
        remove("a");
        m_now += 4s;
        remove("b");
        m_now += 6s;
        m_removals->commitDue();
        QCOMPARE(m_events, QStringList("commit a"));
        m_removals->undo();
        QCOMPARE(m_events, QStringList({"commit a", "undo b"}));
    }

    void allAreCommittedOldestFirst()
    {
        remove("a");
        remove("b");
        QSignalSpy changed(m_removals.get(), &PendingRemovals::changed);
        m_removals->commitAll();
        QCOMPARE(m_events, QStringList({"commit a", "commit b"}));
        QCOMPARE(changed.size(), 1);
        m_removals->commitAll();
        QCOMPARE(changed.size(), 1);
    }

    void lateTimerStillAllowsUndo()
    {
        // The process was stopped for an hour; its timer has not run yet.
        remove("a");
        m_now += 1h;
        QCOMPARE(m_removals->text(), QString("a"));
        m_removals->undo();
        QCOMPARE(m_events, QStringList("undo a"));
    }

    void removalsAreAnnounced()
    {
        QSignalSpy added(m_removals.get(), &PendingRemovals::added);
        remove("a");
        remove("b");
        m_removals->undo();
        QCOMPARE(added.size(), 2);
        QCOMPARE(added.last().first().toString(), QString("b"));
    }

private:
    void remove(const QString &name)
    {
        m_removals->add({name, [this, name] { m_events.append("commit " + name); },
                         [this, name] { m_events.append("undo " + name); }});
    }

    QStringList m_events;
    std::chrono::steady_clock::time_point m_now;
    std::unique_ptr<PendingRemovals> m_removals;
};

QUELLORA_TEST(QCoreApplication, TestPendingRemovals)
#include "test_pending_removals.moc"
