#include "SignInAnswers.h"
#include "backend/HeartbeatService.h"
#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

#include <limits>
#include <memory>
#include <optional>

using namespace quellora;
using namespace std::chrono_literals;
using Ending = ScriptedHttpServer::Ending;

namespace {

constexpr auto expiredLine = "[HeartbeatService] Token invalid/expired — session expired";
constexpr auto noTokenLine = "[HeartbeatService] No session token — stopping";
constexpr auto succeededLine = "[HeartbeatService] Poll succeeded, config refreshed";

/// Timer fired manually by the test.
class FakeTimer : public OneShotTimer
{
public:
    void start(std::chrono::milliseconds delay) override
    {
        ++starts;
        m_delay = delay;
    }
    void stop() override { m_delay.reset(); }
    bool isActive() const override { return m_delay.has_value(); }
    std::chrono::milliseconds delay() const { return m_delay.value_or(-1ms); }

    void fire()
    {
        m_delay.reset();
        onTimeout();
    }

    int starts = 0;

private:
    std::optional<std::chrono::milliseconds> m_delay;
};

struct Fixture
{
    Fixture()
    {
        auth.setSession("t", {});
        session.setHeartbeatStopper([this] { heartbeat.stop(); });
    }

    void answer(int status, const QByteArray &body = {})
    {
        server.answerWith(ScriptedHttpServer::answer(status, body), Ending::KeepOpen);
    }
    /// Starts the heartbeat and clears the log.
    void start(double seconds)
    {
        heartbeat.start(seconds);
        log.clear();
    }
    /// Advances the clock by the timer's delay and fires the timer.
    void elapse()
    {
        now += timer->delay();
        timer->fire();
    }
    /// elapse(), then waits until the poll's request has reached the server.
    bool elapseAndPoll()
    {
        const qsizetype before = server.requests().size();
        elapse();
        return QTest::qWaitFor([&] { return server.requests().size() > before; });
    }

    /// Polls for a new session and returns whether this poll's effects are the only ones, so that
    /// nothing of an earlier poll was delivered.
    bool onlyNextPollHasEffects()
    {
        auth.setSession("later", {});
        start(30);
        if (!elapseAndPoll())
            return false;
        const int last = static_cast<int>(server.requests().size()) - 1;
        server.send(last, ScriptedHttpServer::answer(200, goodBody()));
        const QStringList expected{"[AuthService] Token verification successful", succeededLine};
        return QTest::qWaitFor([this] { return !updated.isEmpty(); }) && updated.count() == 1 &&
               expired.isEmpty() && log.lines == expected && timer->delay() == 30s &&
               server.requests().last().header("Authorization") == "Bearer later";
    }

    ScriptedHttpServer server;
    QNetworkAccessManager network;
    LogCapture log;
    AuthService auth{network, BackendEndpoints(server.baseUrl()), &sampleDevice};
    NotificationCenter notifications;
    QSignalSpy expired{&notifications, &NotificationCenter::sessionExpired};
    QSignalSpy updated{&notifications, &NotificationCenter::configDidUpdate};
    SessionManager session{auth, notifications};
    std::chrono::steady_clock::time_point now{};
    FakeTimer *timer = new FakeTimer;
    HeartbeatService heartbeat{session, notifications,
                               [this] {
                                   return std::make_unique<AuthService>(
                                       network, BackendEndpoints(server.baseUrl()), &sampleDevice);
                               },
                               std::unique_ptr<OneShotTimer>(timer), [this] { return now; }};
};

} // namespace

class TestHeartbeat : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void startLogsTheInterval_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("text");
        QTest::newRow("one day") << 86400.0 << "86400.0";
        QTest::newRow("one minute") << 60.0 << "60.0";
        QTest::newRow("zero") << 0.0 << "0.0";
        QTest::newRow("negative") << -5.0 << "-5.0";
        QTest::newRow("fraction") << 0.25 << "0.25";
        QTest::newRow("twelve days") << 1036800.0 << "1036800.0";
        QTest::newRow("thirty years") << 946080000.0 << "946080000.0";
        QTest::newRow("tiny") << 0.0000001 << "0.0000001";
    }
    void startLogsTheInterval()
    {
        QFETCH(double, seconds);
        QFETCH(QString, text);
        Fixture f;
        f.heartbeat.start(seconds);
        QCOMPARE(
            f.log.lines,
            QStringList{QStringLiteral("[HeartbeatService] Starting, interval: %1s").arg(text)});
    }

    void resumePollsAtOnce()
    {
        Fixture f;
        f.start(60);
        f.answer(200, goodBody());
        f.heartbeat.resume();
        QTRY_COMPARE(f.updated.size(), 1);
        QCOMPARE(f.log.lines,
                 (QStringList{"[HeartbeatService] Woken up — polling now",
                              "[AuthService] Token verification successful", succeededLine}));
        // The interval starts over.
        QCOMPARE(f.timer->delay(), 60s);
    }

    void resumeRepeatsPollInProgress()
    {
        Fixture f;
        f.start(60);
        QVERIFY(f.elapseAndPoll());
        f.heartbeat.resume();
        QTRY_COMPARE(f.server.requests().size(), 2);
        f.server.send(1, ScriptedHttpServer::answer(200, goodBody()));
        QTRY_COMPARE(f.updated.size(), 1);
        QCOMPARE(f.timer->delay(), 60s);
    }

    void failedPollAfterSleepIsRepeatedEarly()
    {
        Fixture f;
        f.start(600);
        f.answer(503);
        f.heartbeat.resume();
        for (int repeats = 0; repeats < 4; ++repeats) {
            QTRY_VERIFY(f.timer->isActive());
            QCOMPARE(f.timer->delay(), 15s);
            QVERIFY(f.elapseAndPoll());
        }
        QTRY_VERIFY(f.timer->isActive());
        QCOMPARE(f.timer->delay(), 600s);
    }

    void successAfterSleepEndsEarlyRepeats()
    {
        Fixture f;
        f.start(600);
        f.answer(200, goodBody());
        f.heartbeat.resume();
        QTRY_VERIFY(f.timer->isActive());
        QCOMPARE(f.timer->delay(), 600s);
        f.answer(503);
        QVERIFY(f.elapseAndPoll());
        QTRY_VERIFY(f.timer->isActive());
        QCOMPARE(f.timer->delay(), 600s);
    }

    void resumeWhileStoppedDoesNothing()
    {
        Fixture f;
        f.heartbeat.resume();
        f.start(60);
        f.heartbeat.stop();
        f.heartbeat.resume();
        QVERIFY(f.server.requests().isEmpty());
        QVERIFY(!f.timer->isActive());
        QCOMPARE(f.log.lines, QStringList());
    }

    void firstPollIsDueAfterOneInterval()
    {
        Fixture f;
        f.start(60);
        QCOMPARE(f.timer->delay(), 60s);
        QVERIFY(f.timer->isActive());
        QCoreApplication::processEvents();
        QCOMPARE(f.server.connectionCount(), 0);
        QVERIFY(f.elapseAndPoll());
        QCOMPARE(f.server.requests().first().startLine(), "POST /api/auth/app-verify HTTP/1.1");
        QCOMPARE(f.server.requests().first().header("Authorization"), "Bearer t");
    }

    void successReplacesTokenAndConfiguration()
    {
        Fixture f;
        f.answer(200, goodBody("next", 77));
        f.start(60);
        f.elapse();
        QTRY_COMPARE(f.updated.count(), 1);
        QCOMPARE(f.session.sessionToken(), "next");
        QCOMPARE(f.session.currentConfig()->tokensUsed, 77);
        QCOMPARE(f.updated.first().first().value<AppConfigResponse>().tokensUsed, 77);
        QCOMPARE(f.log.lines,
                 (QStringList{"[AuthService] Token verification successful", succeededLine}));
        // A changed interval takes effect with the next sign-in.
        QCOMPARE(f.timer->delay(), 60s);
        QVERIFY(f.elapseAndPoll());
        QCOMPARE(f.server.requests().last().header("Authorization"), "Bearer next");
    }

    void nextPollIsScheduledAfterTheResponse()
    {
        Fixture f;
        f.start(60);
        QVERIFY(f.elapseAndPoll());
        QVERIFY(!f.timer->isActive());
        f.now += 20s;
        f.server.send(0, ScriptedHttpServer::answer(200, goodBody()));
        QTRY_COMPARE(f.updated.count(), 1);
        QCOMPARE(f.timer->delay(), 60s);
    }

    void sendsOneRequestAtATime()
    {
        Fixture f;
        f.start(60);
        QVERIFY(f.elapseAndPoll());
        f.heartbeat.poll();
        f.heartbeat.poll();
        f.server.send(0, ScriptedHttpServer::answer(200, goodBody()));
        QTRY_COMPARE(f.updated.count(), 1);
        QCOMPARE(f.server.requests().size(), 1);
        QCOMPARE(f.server.connectionCount(), 1);
    }

    void rejectedTokenExpiresTheSessionOnce()
    {
        Fixture f;
        f.answer(401);
        f.start(60);
        f.elapse();
        QTRY_COMPARE(f.expired.count(), 1);
        QVERIFY(!f.timer->isActive());
        QCOMPARE(f.log.lines,
                 (QStringList{"[AuthService] Token verification failed: invalid or expired token",
                              QString::fromUtf8(expiredLine)}));
        // Ending the session is the observer's task.
        QCOMPARE(f.session.sessionToken(), "t");
        f.session.logout();
        QCoreApplication::processEvents();
        QCOMPARE(f.expired.count(), 1);
        QCOMPARE(f.updated.count(), 0);
    }

    void otherFailuresKeepPolling_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("description");
        QTest::newRow("suspended") << 403 << "Your account has been suspended. Contact support.";
        QTest::newRow("unreadable") << 200 << "Unexpected response from server";
        QTest::newRow("lost") << 0 << "Connection error (-1). Check your internet connection.";
        for (const int status : {201, 204, 302, 404, 429, 500, 503}) {
            QTest::addRow("%d", status)
                << status
                << QStringLiteral("Connection error (%1). Check your internet connection.")
                       .arg(status);
        }
    }
    void otherFailuresKeepPolling()
    {
        QFETCH(int, status);
        QFETCH(QString, description);
        Fixture f;
        if (status == 0)
            f.server.answerWith({}, Ending::Reset);
        else
            f.answer(status, status == 204 ? "" : "nonsense");
        f.start(3600);
        for (int i = 0; i < 2; ++i) {
            f.elapse();
            QTRY_VERIFY(f.timer->isActive());
            QCOMPARE(f.timer->delay(), 3600s);
            QCOMPARE(f.log.lines.last(),
                     "[HeartbeatService] Poll failed (non-fatal): " + description);
        }
        QCOMPARE(f.server.requests().size(), 2);
        QCOMPARE(f.expired.count(), 0);
        QCOMPARE(f.updated.count(), 0);
        QCOMPARE(f.session.sessionToken(), "t");
    }

    void stopsWithoutToken()
    {
        Fixture f;
        f.start(3600);
        f.auth.clearSession();
        f.elapse();
        QCOMPARE(f.log.lines, QStringList{QString::fromUtf8(noTokenLine)});
        QVERIFY(!f.timer->isActive());
        QCOMPARE(f.server.connectionCount(), 0);
    }

    void signOutCancelsTheScheduledPoll()
    {
        Fixture f;
        f.start(60);
        f.session.logout();
        QVERIFY(!f.timer->isActive());
    }

    void responseAfterSignOutIsIgnored_data()
    {
        QTest::addColumn<int>("status");
        QTest::newRow("success") << 200;
        QTest::newRow("rejection") << 401;
        QTest::newRow("failure") << 500;
    }
    void responseAfterSignOutIsIgnored()
    {
        QFETCH(int, status);
        Fixture f;
        f.start(60);
        QVERIFY(f.elapseAndPoll());
        f.session.logout();
        f.server.send(0, ScriptedHttpServer::answer(status, goodBody("ghost")));
        QVERIFY(!f.session.sessionToken());
        QVERIFY(!f.timer->isActive());
        QVERIFY(f.onlyNextPollHasEffects());
    }

    void signOutAbortsTheTransfer()
    {
        Fixture f;
        f.start(60);
        QVERIFY(f.elapseAndPoll());
        f.session.logout();
        QTRY_VERIFY(f.server.requests().first().disconnected);
    }

    void undeliveredResultIsDroppedOnSignOut()
    {
        Fixture f;
        f.answer(401);
        // Sign out after the verification has finished, before its result is delivered.
        Log::setSinkForTesting([&f](const QString &line) {
            if (line.startsWith("[AuthService] Token verification"))
                QMetaObject::invokeMethod(
                    &f.session, [&f] { f.session.logout(); }, Qt::QueuedConnection);
        });
        QSignalSpy ended(&f.notifications, &NotificationCenter::sessionDidEnd);
        f.heartbeat.start(60);
        f.elapse();
        QTRY_COMPARE(ended.count(), 1);
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        QCOMPARE(f.expired.count(), 0);
        QVERIFY(!f.timer->isActive());
    }

    void restartWhilePollingDropsThePoll()
    {
        Fixture f;
        f.start(60);
        QVERIFY(f.elapseAndPoll());
        f.start(45);
        QCOMPARE(f.timer->delay(), 45s);
        // Response to the earlier poll.
        f.server.send(0, ScriptedHttpServer::answer(401, {}));
        QVERIFY(f.onlyNextPollHasEffects());
    }

    void observerMayCallStop()
    {
        Fixture f;
        f.answer(200, goodBody());
        QObject::connect(&f.notifications, &NotificationCenter::configDidUpdate, &f.heartbeat,
                         [&f] { f.session.logout(); });
        f.start(60);
        f.elapse();
        QTRY_COMPARE(f.updated.count(), 1);
        QVERIFY(!f.timer->isActive());
        QVERIFY(!f.session.sessionToken());
    }

    void invalidIntervalsPollWithoutDelay_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::newRow("zero") << 0.0;
        QTest::newRow("negative") << -1.0;
        QTest::newRow("most negative") << static_cast<double>(std::numeric_limits<qint64>::min());
        QTest::newRow("no number") << std::numeric_limits<double>::quiet_NaN();
    }
    void invalidIntervalsPollWithoutDelay()
    {
        QFETCH(double, seconds);
        Fixture f;
        f.start(seconds);
        // Polls without delay, through the event loop.
        QCOMPARE(f.timer->delay(), 0ms);
        f.answer(200, goodBody());
        f.elapse();
        QTRY_COMPARE(f.updated.count(), 1);
        QCOMPARE(f.timer->delay(), 0ms);
    }

    void longIntervalsAreSplit()
    {
        Fixture f;
        constexpr auto month = 30 * 24h;
        f.start(std::chrono::duration<double>(month).count());
        const auto begin = f.now;
        QVERIFY(f.timer->delay() <= std::chrono::milliseconds(std::numeric_limits<int>::max()));
        while (f.now - begin < month) {
            QCOMPARE(f.server.connectionCount(), 0);
            f.elapse();
        }
        QCOMPARE(f.now - begin, month);
        QTRY_COMPARE(f.server.requests().size(), 1);
    }

    void hugeIntervalNeverPolls()
    {
        Fixture f;
        f.start(static_cast<double>(std::numeric_limits<qint64>::max()));
        for (int turns = 0; turns < 100; ++turns) {
            QVERIFY(f.timer->delay() >= 24h);
            f.elapse();
        }
        QVERIFY(f.timer->isActive());
        QCOMPARE(f.server.connectionCount(), 0);
    }

    void missedIntervalsAreSkipped()
    {
        Fixture f;
        f.answer(200, goodBody());
        f.start(60);
        // The machine was suspended for ten intervals.
        f.now += 600s;
        f.timer->fire();
        QTRY_COMPARE(f.updated.count(), 1);
        QCOMPARE(f.server.requests().size(), 1);
        QCOMPARE(f.timer->delay(), 60s);
    }

    void pollsWithQtTimer()
    {
        Fixture f;
        f.answer(200, goodBody());
        HeartbeatService heartbeat(f.session, f.notifications, [&f] {
            return std::make_unique<AuthService>(f.network, BackendEndpoints(f.server.baseUrl()),
                                                 &sampleDevice);
        });
        heartbeat.start(0);
        QTRY_VERIFY(f.updated.count() >= 3);
        heartbeat.stop();
        const qsizetype updates = f.updated.count();
        QTest::qWait(0);
        QCOMPARE(f.updated.count(), updates);
    }
};

QUELLORA_TEST(QCoreApplication, TestHeartbeat)
#include "test_heartbeat.moc"
