#include "ServiceMessagesFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>

using namespace quellora;
using Fixture = ServiceMessagesFixture;

class TestServiceMessages : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void rateLimitCardIsRemovedByTimer()
    {
        Fixture f;
        f.messages.handleRateLimited(42);
        const AdminMessagePayload shown = *f.messages.currentAdminMessage();
        QCOMPARE(shown.id, "local_rate_limited");
        QCOMPARE(shown.type, "INFORMATIONAL");
        QCOMPARE(shown.headerText, "Rate Limited");
        QCOMPARE(shown.bodyMarkdown,
                 QString::fromUtf8(
                     "Too many requests — please wait 42 seconds before capturing again."));
        QVERIFY(!shown.actionLabel && !shown.actionUrl && !shown.forceUpdateInMinutes);
        QCOMPARE(f.timer("rateLimitedTimer")->interval(), 42000);
        QVERIFY(!f.messages.isBlocked());

        f.messages.handleRateLimited(7);
        QVERIFY(f.messages.currentAdminMessage()->bodyMarkdown.contains("wait 7 seconds"));
        QCOMPARE(f.timer("rateLimitedTimer")->interval(), 7000);
        f.messages.handleRateLimited(0);
        QTRY_VERIFY(!f.messages.currentAdminMessage());
    }

    void rateLimitTimerKeepsOtherMessages()
    {
        Fixture f;
        f.messages.handleRateLimited(0);
        f.messages.handleProtectedContentCapture();
        QTRY_VERIFY(!f.timer("rateLimitedTimer")->isActive());
        QCOMPARE(f.shownId(), "local_protected_content");
    }

    void outOfRangeRateLimitsAreClamped()
    {
        Fixture f;
        f.messages.handleRateLimited(std::numeric_limits<qint64>::max());
        QVERIFY(f.timer("rateLimitedTimer")->interval() > 0);
        f.messages.handleRateLimited(-5);
        QCOMPARE(f.timer("rateLimitedTimer")->interval(), 0);
    }

    void protectedContentReplacesInformational()
    {
        Fixture f;
        f.messages.setCurrentAdminMessage(message("server", "INFORMATIONAL"));
        f.messages.handleProtectedContentCapture();
        const AdminMessagePayload shown = *f.messages.currentAdminMessage();
        QCOMPARE(shown.id, "local_protected_content");
        QCOMPARE(shown.headerText, "Couldn't Capture Screen");
        QCOMPARE(shown.bodyMarkdown,
                 QString::fromUtf8("Couldn't capture the screen — the content may be protected "
                                   "(DRM). Try a different window."));
    }

    void blockingMessageIsNeverOverwritten()
    {
        Fixture f;
        f.messages.setCurrentAdminMessage(message("server", "BLOCKING"));
        f.log.clear();
        f.messages.handleRateLimited(3);
        QCOMPARE(f.log.lines,
                 QStringList{prefix +
                             QString::fromUtf8("rate_limited received but a BLOCKING message is "
                                               "already showing — not overwriting")});
        f.log.clear();
        f.messages.handleProtectedContentCapture();
        QCOMPARE(f.log.lines,
                 QStringList{prefix +
                             QString::fromUtf8("Protected-content capture but a BLOCKING message "
                                               "is already showing — not overwriting")});
        f.log.clear();
        f.messages.handleServerMessage("boom");
        QVERIFY(f.messages.lastQueryHitServerMessage());
        QCOMPARE(f.log.lines,
                 (QStringList{
                     prefix + "Server sent an error event (rendered as the standard "
                              "credits-exhausted card, not shown verbatim): boom",
                     prefix + QString::fromUtf8("Server message received but a BLOCKING message is "
                                                "already showing — not overwriting")}));
        f.messages.handleCapExceeded(10, 10);
        QVERIFY(!f.messages.capExceeded());
        QCOMPARE(f.shownId(), "server");
        QVERIFY(!f.timer("rateLimitedTimer")->isActive());
    }

    void rateLimitKeepsCreditsCard()
    {
        Fixture f;
        f.messages.handleServerMessage("no");
        f.log.clear();
        f.messages.handleRateLimited(3);
        QCOMPARE(f.shownId(), "local_credits_exhausted");
        QCOMPARE(f.log.lines,
                 QStringList{prefix +
                             QString::fromUtf8("rate_limited received but a BLOCKING message is "
                                               "already showing — not overwriting")});
        QVERIFY(!f.timer("rateLimitedTimer")->isActive());
    }

    void serverMessageShowsStandardCard()
    {
        Fixture f;
        f.messages.handleServerMessage("<b>secret</b>");
        const AdminMessagePayload shown = *f.messages.currentAdminMessage();
        QCOMPARE(shown.id, "local_credits_exhausted");
        QCOMPARE(shown.type, "BLOCKING");
        QCOMPARE(shown.headerText, "Credit Limit Reached");
        QCOMPARE(shown.bodyMarkdown,
                 "You have used all of your included credits this month.\n\nTo continue using "
                 "Vantiro, please upgrade your plan.\n\n*After upgrading, sign out and sign back "
                 "in to the app to restore access.*");
        QCOMPARE(shown.actionLabel, "Upgrade Now");
        QCOMPARE(shown.actionUrl, "http://host/account/billing");
        QVERIFY(f.messages.isBlocked());
    }

    void capExceededStoresUsageAndShowsCard()
    {
        Fixture f;
        f.messages.handleCapExceeded(1200, 1000);
        QCOMPARE(f.messages.tokensUsed(), 1200);
        QCOMPARE(f.messages.tokenCap(), 1000);
        QVERIFY(f.messages.capExceeded());
        QCOMPARE(f.shownId(), "local_cap_exceeded");
        f.messages.updateUsage(10, 1000);
        QVERIFY(!f.messages.capExceeded());
        QCOMPARE(f.shownId(), "");
    }

    void usageThresholds()
    {
        Fixture f;
        f.messages.updateUsage(999, 1000);
        QVERIFY(!f.messages.isBlocked());
        QVERIFY(!f.messages.blockIfKnownOverCap());
        QVERIFY(f.display.pages.isEmpty());

        f.log.clear();
        f.messages.updateUsage(1000, 1000);
        QCOMPARE(f.display.pages,
                 QStringList{"## Out of Credits\n\nYou're out of credits. Upgrade to keep going."});
        QCOMPARE(f.display.calls, (QStringList{"loadContent", "showWindow"}));
        QVERIFY(f.messages.isBlocked());
        QVERIFY(!f.messages.capExceeded());
        QCOMPARE(f.shownId(), "");

        // The page is shown on the transition only.
        f.messages.updateUsage(1249, 1000);
        QCOMPARE(f.display.pages.size(), 1);
        QVERIFY(!f.messages.capExceeded());
        f.messages.updateUsage(1250, 1000);
        QVERIFY(f.messages.capExceeded());
        QCOMPARE(f.shownId(), "local_cap_exceeded");
    }

    void unknownCapBlocksAtZeroUsage()
    {
        Fixture f;
        f.messages.updateUsage(0, 0);
        QVERIFY(f.messages.capExceeded());
        QVERIFY(f.messages.isBlocked());
        Fixture negative;
        negative.messages.updateUsage(-1, 0);
        QVERIFY(!negative.messages.isBlocked());
    }

    void hardLimitIsTruncated()
    {
        Fixture f;
        // 3 × 1.25 = 3.75, truncated to 3.
        f.messages.updateUsage(3, 3);
        QVERIFY(f.messages.capExceeded());
    }

    void usageBelowCapClearsExhaustion()
    {
        Fixture f;
        f.messages.updateUsage(10, 1000);
        f.messages.handleServerMessage("no");
        QVERIFY(f.messages.isBlocked());
        f.messages.updateUsage(11, 1000);
        QVERIFY(!f.messages.isBlocked());
        QVERIFY(!f.messages.lastQueryHitServerMessage());
        QCOMPARE(f.shownId(), "");
    }

    void preBlockIsLogged()
    {
        Fixture f;
        f.messages.updateUsage(1000, 1000);
        f.log.clear();
        QVERIFY(f.messages.blockIfKnownOverCap());
        QCOMPARE(f.log.lines.first(),
                 prefix + QString::fromUtf8("Query pre-blocked — client already knows credits are "
                                            "exhausted (tokensUsed=1000, tokenCap=1000, "
                                            "lastQueryHitServerMessage=false)"));
        QVERIFY(f.log.contains(
            prefix +
            QString::fromUtf8("Server sent an error event (rendered as the standard "
                              "credits-exhausted card, not shown verbatim): (local pre-block — "
                              "no server round-trip occurred)")));
        QCOMPARE(f.shownId(), "local_credits_exhausted");
        QVERIFY(f.messages.lastQueryHitServerMessage());
    }

    void usageTiersAndLogLine_data()
    {
        QTest::addColumn<qint64>("used");
        QTest::addColumn<qint64>("cap");
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("visible");
        QTest::newRow("grey") << qint64(799) << qint64(1000) << "799/1000 (79.9%), tier=grey"
                              << false;
        QTest::newRow("amber") << qint64(800) << qint64(1000) << "800/1000 (80.0%), tier=amber"
                               << true;
        QTest::newRow("red") << qint64(950) << qint64(1000) << "950/1000 (95.0%), tier=red" << true;
        QTest::newRow("no cap") << qint64(-1) << qint64(0) << "-1/0 (0.0%), tier=grey" << false;
    }
    void usageTiersAndLogLine()
    {
        QFETCH(qint64, used);
        QFETCH(qint64, cap);
        QFETCH(QString, line);
        QFETCH(bool, visible);
        Fixture f;
        f.messages.updateUsage(used, cap);
        QCOMPARE(f.log.lines, QStringList{prefix + "Usage bar updated: " + line});
        QCOMPARE(f.messages.isUsageIndicatorVisible(), visible);
    }

    void countdownShowsRemainingMinutes()
    {
        Fixture f;
        AdminMessagePayload update = message("u1", "BLOCKING");
        update.forceUpdateInMinutes = 5;
        f.messages.setCurrentAdminMessage(update);
        QCOMPARE(f.log.lines,
                 QStringList{prefix + "Forced update countdown started: 5min, message id u1"});
        const auto suffix = [&f] {
            return f.messages.displayedAdminMessage()->bodyMarkdown.mid(4);
        };
        QCOMPARE(suffix(), "\n\nYou have **5 minutes** before access is restricted.");
        QSignalSpy changed(&f.messages, &ServiceMessages::changed);
        for (int i = 0; i < 4; ++i) {
            f.now = f.now.addSecs(60);
            f.messages.checkUpdateDeadline();
        }
        QCOMPARE(changed.count(), 4);
        QCOMPARE(suffix(), "\n\nYou have **1 minute** before access is restricted.");
        f.now = f.now.addSecs(70);
        QCOMPARE(suffix(), "\n\nYou have **0 minutes** before access is restricted.");
        f.log.clear();
        f.messages.checkUpdateDeadline();
        QCOMPARE(f.log.lines,
                 (QStringList{prefix + QString::fromUtf8(
                                           "Forced update deadline reached — blocking captures"),
                              prefix + "forceUpdateRequired -> true"}));
        QVERIFY(!f.timer("updateCountdownTimer")->isActive());
        QCOMPARE(suffix(), "\n\n**Access restricted.** Please update Vantiro to continue.");
        QVERIFY(f.messages.isBlocked());
        f.log.clear();
        f.messages.setCurrentAdminMessage(std::nullopt);
        QCOMPARE(f.log.lines, QStringList{prefix + "forceUpdateRequired -> false"});
        QVERIFY(!f.messages.isBlocked());
    }

    void repeatedMessageKeepsCountdown()
    {
        Fixture f;
        AdminMessagePayload update = message("u1", "BLOCKING");
        update.forceUpdateInMinutes = 5;
        f.messages.setCurrentAdminMessage(update);
        f.now = f.now.addSecs(120);
        f.messages.setCurrentAdminMessage(update);
        QVERIFY(f.messages.displayedAdminMessage()->bodyMarkdown.contains("**3 minutes**"));
        f.messages.setCurrentAdminMessage(message("local_force_update_required", "BLOCKING"));
        QVERIFY(f.timer("updateCountdownTimer")->isActive());
        f.messages.setCurrentAdminMessage(message("other", "BLOCKING"));
        QVERIFY(!f.timer("updateCountdownTimer")->isActive());
        AdminMessagePayload informational = update;
        informational.type = "INFORMATIONAL";
        f.messages.setCurrentAdminMessage(update);
        f.messages.setCurrentAdminMessage(informational);
        QVERIFY(!f.timer("updateCountdownTimer")->isActive());
    }

    void onlyInformationalMessagesCollapse()
    {
        Fixture f;
        f.messages.toggleInformationalCollapse();
        QVERIFY(!f.messages.isInformationalCollapsed());
        f.messages.setCurrentAdminMessage(message("a", "INFORMATIONAL"));
        f.messages.toggleInformationalCollapse();
        QVERIFY(f.messages.isInformationalCollapsed());
        f.messages.setCurrentAdminMessage(message("b", "INFORMATIONAL"));
        QVERIFY(!f.messages.isInformationalCollapsed());
        f.messages.setCurrentAdminMessage(message("a", "INFORMATIONAL"));
        QVERIFY(f.messages.isInformationalCollapsed());
        f.messages.toggleInformationalCollapse();
        QVERIFY(!f.messages.isInformationalCollapsed());
        f.messages.setCurrentAdminMessage(message("a", "BLOCKING"));
        f.messages.toggleInformationalCollapse();
        QVERIFY(!f.messages.isInformationalCollapsed());
    }

    void newOccurrenceExpandsCollapsedCard()
    {
        Fixture f;
        f.messages.handleRateLimited(60);
        f.messages.toggleInformationalCollapse();
        QVERIFY(f.messages.isInformationalCollapsed());
        f.messages.handleRateLimited(5);
        QVERIFY(!f.messages.isInformationalCollapsed());

        f.messages.handleProtectedContentCapture();
        f.messages.toggleInformationalCollapse();
        f.messages.handleProtectedContentCapture();
        QVERIFY(!f.messages.isInformationalCollapsed());
        // Usage updates do not expand the card.
        f.messages.toggleInformationalCollapse();
        f.messages.updateUsage(1, 1000);
        QVERIFY(f.messages.isInformationalCollapsed());
    }

    void messageWithoutCountdownIsShownUnchanged()
    {
        Fixture f;
        f.messages.setCurrentAdminMessage(message("a", "INFORMATIONAL"));
        QCOMPARE(*f.messages.displayedAdminMessage(), message("a", "INFORMATIONAL"));
    }
};

QUELLORA_TEST(QCoreApplication, TestServiceMessages)
#include "test_service_messages.moc"
