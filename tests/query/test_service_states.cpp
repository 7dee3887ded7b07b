#include "ServiceMessagesFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>

using namespace quellora;
using Fixture = ServiceMessagesFixture;

/// Transitions between cards, usage states and countdowns.
class TestServiceStates : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void localMessagesReplaceInformationalOnes()
    {
        Fixture f;
        QSignalSpy changed(&f.messages, &ServiceMessages::changed);
        f.messages.setCurrentAdminMessage(message("server", "INFORMATIONAL"));
        f.messages.handleProtectedContentCapture();
        QCOMPARE(f.shownId(), "local_protected_content");
        QVERIFY(!f.timer("rateLimitedTimer")->isActive());
        f.messages.handleRateLimited(5);
        QCOMPARE(f.shownId(), "local_rate_limited");
        QCOMPARE(changed.count(), 3);
        f.messages.handleServerMessage("no");
        QCOMPARE(f.shownId(), "local_credits_exhausted");
        Fixture other;
        other.messages.handleRateLimited(5);
        other.messages.handleCapExceeded(10, 10);
        QCOMPARE(other.shownId(), "local_cap_exceeded");
        // The rate limit timer ends later and must not remove the other card.
        other.timer("rateLimitedTimer")->start(0);
        QTRY_VERIFY(!other.timer("rateLimitedTimer")->isActive());
        QCOMPARE(other.shownId(), "local_cap_exceeded");
    }

    void capCardIsShownOnTransitionOnly()
    {
        Fixture f;
        f.messages.handleCapExceeded(10, 10);
        QCOMPARE(f.log.lines, QStringList{prefix + "Usage bar updated: 10/10 (100.0%), tier=red"});
        f.messages.setCurrentAdminMessage(message("server", "INFORMATIONAL"));
        f.messages.handleCapExceeded(11, 10);
        QCOMPARE(f.shownId(), "server");
        QVERIFY(f.messages.isBlocked());
    }

    void capExceededKeepsBlockingMessage()
    {
        Fixture f;
        f.messages.setCurrentAdminMessage(message("server", "BLOCKING"));
        f.log.clear();
        f.messages.handleCapExceeded(20, 10);
        QCOMPARE(f.log.lines, QStringList{prefix + "Usage bar updated: 20/10 (200.0%), tier=red"});
        QCOMPARE(f.messages.tokensUsed(), 20);
        QVERIFY(!f.messages.capExceeded());
    }

    void blockedStates_data()
    {
        QTest::addColumn<qint64>("used");
        QTest::addColumn<qint64>("cap");
        QTest::addColumn<bool>("rejected");
        QTest::addColumn<QString>("type");
        QTest::addColumn<bool>("blocked");
        QTest::newRow("below the cap") << qint64(9) << qint64(10) << false << "" << false;
        QTest::newRow("at the cap") << qint64(10) << qint64(10) << false << "" << true;
        QTest::newRow("no cap") << qint64(-1) << qint64(0) << false << "" << false;
        QTest::newRow("no cap, rejected") << qint64(-1) << qint64(0) << true << "" << true;
        QTest::newRow("below the cap, rejected") << qint64(9) << qint64(10) << true << "" << true;
        QTest::newRow("informational")
            << qint64(1) << qint64(10) << false << "INFORMATIONAL" << false;
        QTest::newRow("blocking") << qint64(1) << qint64(10) << false << "BLOCKING" << true;
        QTest::newRow("lower-case type") << qint64(1) << qint64(10) << false << "blocking" << false;
    }
    void blockedStates()
    {
        QFETCH(qint64, used);
        QFETCH(qint64, cap);
        QFETCH(bool, rejected);
        QFETCH(QString, type);
        QFETCH(bool, blocked);
        Fixture f;
        f.messages.updateUsage(used, cap);
        if (rejected)
            f.messages.handleServerMessage("no");
        f.messages.setCurrentAdminMessage(std::nullopt);
        if (!type.isEmpty())
            f.messages.setCurrentAdminMessage(message("m", type));
        QCOMPARE(f.messages.isBlocked(), blocked);
    }

    void preBlockKeepsBlockingMessage()
    {
        Fixture f;
        f.messages.updateUsage(10, 10);
        f.messages.setCurrentAdminMessage(message("server", "BLOCKING"));
        f.log.clear();
        QVERIFY(f.messages.blockIfKnownOverCap());
        QCOMPARE(f.log.lines.size(), 3);
        QVERIFY(f.log.lines.at(0).contains("Query pre-blocked"));
        QVERIFY(f.log.lines.at(2).endsWith("not overwriting"));
        QCOMPARE(f.shownId(), "server");
    }

    void outOfCreditsPageIsShownOnEachTransition()
    {
        Fixture f;
        f.messages.updateUsage(1000, 1000);
        f.messages.updateUsage(500, 1000);
        QVERIFY(!f.messages.isBlocked());
        f.messages.updateUsage(1001, 1000);
        QCOMPARE(f.display.pages.size(), 2);
        // No page if a query has already been rejected.
        Fixture rejected;
        rejected.messages.updateUsage(1, 1000);
        rejected.messages.handleServerMessage("no");
        rejected.messages.updateUsage(1000, 1000);
        QVERIFY(rejected.display.pages.isEmpty());
        QCOMPARE(rejected.shownId(), "local_credits_exhausted");
    }

    void usageBelowCapKeepsOtherMessages()
    {
        Fixture f;
        f.messages.handleServerMessage("no");
        f.messages.setCurrentAdminMessage(message("server", "INFORMATIONAL"));
        f.messages.updateUsage(1, 1000);
        QVERIFY(!f.messages.lastQueryHitServerMessage());
        QCOMPARE(f.shownId(), "server");
        // Without a known cap, the exhausted state persists.
        f.messages.handleServerMessage("no");
        f.messages.updateUsage(-1, 0);
        QVERIFY(f.messages.lastQueryHitServerMessage());
        QCOMPARE(f.shownId(), "local_credits_exhausted");
    }

    void usagePercentageIsRoundedInLogOnly()
    {
        Fixture f;
        f.messages.updateUsage(9496, 10000);
        QCOMPARE(f.log.lines,
                 QStringList{prefix + "Usage bar updated: 9496/10000 (95.0%), tier=amber"});
    }

    void countdownTicksEveryMinute()
    {
        Fixture f;
        AdminMessagePayload update = message("u1", "BLOCKING");
        update.forceUpdateInMinutes = 2;
        f.messages.setCurrentAdminMessage(update);
        QTimer *timer = f.timer("updateCountdownTimer");
        QVERIFY(timer->isActive() && !timer->isSingleShot());
        QCOMPARE(timer->interval(), 60'000);
        f.now = f.now.addSecs(59);
        QVERIFY(f.messages.displayedAdminMessage()->bodyMarkdown.contains("**2 minutes**"));
        f.now = f.now.addSecs(2);
        QVERIFY(f.messages.displayedAdminMessage()->bodyMarkdown.contains("**1 minute**"));
    }

    void timersArePrecise()
    {
        Fixture f;
        // A coarse timer may be three seconds early each minute.
        QCOMPARE(f.timer("updateCountdownTimer")->timerType(), Qt::PreciseTimer);
        QCOMPARE(f.timer("rateLimitedTimer")->timerType(), Qt::PreciseTimer);
    }

    void lastTickBlocksAtDeadline()
    {
        Fixture f;
        AdminMessagePayload update = message("u1", "BLOCKING");
        update.forceUpdateInMinutes = 5;
        f.messages.setCurrentAdminMessage(update);
        QTimer *timer = f.timer("updateCountdownTimer");
        const auto tick = [&] {
            f.now = f.now.addMSecs(timer->interval());
            f.messages.checkUpdateDeadline();
        };
        for (const int minutes : {4, 3, 2}) {
            tick();
            QVERIFY(f.messages.displayedAdminMessage()->bodyMarkdown.contains(
                QStringLiteral("**%1 minutes**").arg(minutes)));
        }
        tick();
        QVERIFY(f.messages.displayedAdminMessage()->bodyMarkdown.contains("**1 minute**"));
        QVERIFY(!f.messages.forceUpdateRequired());
        tick();
        QVERIFY(f.messages.forceUpdateRequired());
        QVERIFY(!timer->isActive());
    }

    void ticksRealignAfterSystemSleep()
    {
        Fixture f;
        AdminMessagePayload update = message("u1", "BLOCKING");
        update.forceUpdateInMinutes = 5;
        f.messages.setCurrentAdminMessage(update);
        QTimer *timer = f.timer("updateCountdownTimer");
        // The system sleeps for 95 seconds before the first tick.
        f.now = f.now.addSecs(60 + 95);
        f.messages.checkUpdateDeadline();
        QCOMPARE(timer->interval(), 25'000);
        f.now = f.now.addSecs(25);
        f.messages.checkUpdateDeadline();
        QCOMPARE(timer->interval(), 60'000);
        QVERIFY(f.messages.displayedAdminMessage()->bodyMarkdown.contains("**2 minutes**"));
        QVERIFY(timer->isActive() && !timer->isSingleShot());
    }

    void expiredCountdownShowsZero_data()
    {
        QTest::addColumn<int>("minutes");
        QTest::newRow("zero") << 0;
        QTest::newRow("negative") << -5;
    }
    void expiredCountdownShowsZero()
    {
        QFETCH(int, minutes);
        Fixture f;
        AdminMessagePayload update = message("u1", "BLOCKING");
        update.forceUpdateInMinutes = minutes;
        f.messages.setCurrentAdminMessage(update);
        QVERIFY(!f.messages.forceUpdateRequired());
        QVERIFY(f.messages.displayedAdminMessage()->bodyMarkdown.contains("**0 minutes**"));
        f.messages.checkUpdateDeadline();
        QVERIFY(f.messages.forceUpdateRequired());
    }

    void passedDeadlinePersistsUntilMessageChanges()
    {
        Fixture f;
        AdminMessagePayload update = message("u1", "BLOCKING");
        update.forceUpdateInMinutes = 1;
        f.messages.setCurrentAdminMessage(update);
        f.now = f.now.addSecs(60);
        f.messages.checkUpdateDeadline();
        f.log.clear();
        f.messages.setCurrentAdminMessage(update);
        QVERIFY(f.messages.forceUpdateRequired());
        QVERIFY(!f.timer("updateCountdownTimer")->isActive());
        QVERIFY(f.log.lines.isEmpty());
        f.messages.setCurrentAdminMessage(message("local_force_update_required", "BLOCKING"));
        QVERIFY(f.messages.forceUpdateRequired());
        update.id = "u2";
        f.messages.setCurrentAdminMessage(update);
        QCOMPARE(f.log.lines,
                 (QStringList{prefix + "forceUpdateRequired -> false",
                              prefix + "Forced update countdown started: 1min, message id u2"}));
        QVERIFY(f.timer("updateCountdownTimer")->isActive());
    }

    void tickWithoutDeadlineOnlyEmitsChanged()
    {
        Fixture f;
        QSignalSpy changed(&f.messages, &ServiceMessages::changed);
        f.messages.checkUpdateDeadline();
        QCOMPARE(changed.count(), 1);
        QVERIFY(!f.messages.forceUpdateRequired());
        QVERIFY(f.log.lines.isEmpty());
    }
};

QUELLORA_TEST(QCoreApplication, TestServiceStates)
#include "test_service_states.moc"
