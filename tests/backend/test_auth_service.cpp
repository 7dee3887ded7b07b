#include "app/NotificationCenter.h"
#include "backend/AuthService.h"
#include "backend/HeartbeatService.h"
#include "backend/SessionManager.h"
#include "fakes/LogCapture.h"
#include "fakes/ScriptedHttpServer.h"
#include "fakes/StatuslessNetwork.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

using namespace quellora;
using Ending = ScriptedHttpServer::Ending;

namespace {

QByteArray goodBody(const QByteArray &token = "fresh", int used = 10)
{
    return QJsonDocument(QJsonObject{{"token", QString::fromLatin1(token)},
                                     {"sessionId", "s"},
                                     {"config", QJsonObject{{"model", "m"},
                                                            {"availableModels", QJsonArray()},
                                                            {"defaultPrompt", "p"},
                                                            {"minimumAppVersion", "1"},
                                                            {"tokensUsed", used},
                                                            {"tokensRemaining", 90},
                                                            {"tokenCap", 100},
                                                            {"usageWarning75", false},
                                                            {"usageWarning90", false},
                                                            {"plan", "p"},
                                                            {"subscriptionStatus", "a"},
                                                            {"heartbeatIntervalSeconds", 5}}}})
        .toJson(QJsonDocument::Compact);
}

DeviceFields device()
{
    return {"Debian 12", {{"capture", "ctrl+c"}}, "x86_64"};
}

struct Fixture
{
    ScriptedHttpServer server;
    QNetworkAccessManager network;
    LogCapture log;
    AuthService auth{network, BackendEndpoints(server.baseUrl()), &device};

    void answer(int status, const QByteArray &body = {}, const QByteArray &headers = {})
    {
        server.answerWith(ScriptedHttpServer::answer(status, body, headers), Ending::Close);
    }
};

LoginResult wait(QFuture<LoginResult> future)
{
    while (!future.isFinished())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return future.result();
}

} // namespace

class TestAuthService : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void loginSendsItsRequest()
    {
        Fixture f;
        f.answer(200, goodBody());
        const LoginResult result = wait(f.auth.login(" me@x ", " pass "));
        QVERIFY(result);
        QCOMPARE(f.auth.sessionToken(), "fresh");
        QCOMPARE(f.auth.currentConfig()->tokensUsed, 10);
        QCOMPARE(f.log.lines, QStringList{"[AuthService] Login successful"});

        const auto &request = f.server.requests().first();
        QCOMPARE(request.startLine(), "POST /api/auth/app-login HTTP/1.1");
        QCOMPARE(request.header("Content-Type"), "application/json");
        QCOMPARE(request.header("X-App-Version"), "1.0.0");
        QVERIFY(request.header("Authorization").isEmpty());
        const auto names = request.headerNames();
        QVERIFY(names.indexOf("Content-Type") < names.indexOf("X-App-Version"));
        const QJsonObject body = QJsonDocument::fromJson(request.body()).object();
        QCOMPARE(body["email"].toString(), " me@x ");
        QCOMPARE(body["password"].toString(), " pass ");
        QCOMPARE(body["hotkeys"].toObject()["capture"].toString(), "ctrl+c");
    }

    void verifySendsTheTokenInTheHeaderOnly()
    {
        Fixture f;
        f.answer(200, goodBody("newer"));
        QVERIFY(wait(f.auth.verify("old-token")));
        QCOMPARE(f.auth.sessionToken(), "newer");
        QCOMPARE(f.log.lines, QStringList{"[AuthService] Token verification successful"});
        const auto &request = f.server.requests().first();
        QCOMPARE(request.startLine(), "POST /api/auth/app-verify HTTP/1.1");
        QCOMPARE(request.header("Authorization"), "Bearer old-token");
        QVERIFY(!request.body().contains("old-token"));
        const auto names = request.headerNames();
        QVERIFY(names.indexOf("Authorization") < names.indexOf("Content-Type"));
        QVERIFY(names.indexOf("Content-Type") < names.indexOf("X-App-Version"));
    }

    void statusesAreMapped_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("loginReason");
        QTest::addColumn<QString>("verifyReason");
        QTest::newRow("401") << 401 << QByteArray("{}") << "Invalid email or password"
                             << "invalid credentials"
                             << "invalid or expired token";
        QTest::newRow("403") << 403 << QByteArray()
                             << "Your account has been suspended. Contact support."
                             << "account suspended"
                             << "account suspended";
        for (const int status : {201, 204, 302, 404, 429, 500, 503}) {
            const QString reason = QStringLiteral("unexpected status code %1").arg(status);
            QTest::newRow(qPrintable(QString::number(status)))
                << status << QByteArray()
                << QStringLiteral("Connection error (%1). Check your internet connection.")
                       .arg(status)
                << reason << reason;
        }
    }
    void statusesAreMapped()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, shown);
        QFETCH(QString, loginReason);
        QFETCH(QString, verifyReason);
        Fixture f;
        f.auth.setSession("kept", {});
        f.answer(status, body);
        const LoginResult login = wait(f.auth.login("e", "p"));
        QVERIFY(!login);
        QCOMPARE(login.error().description(), shown);
        QCOMPARE(f.log.lines, QStringList{"[AuthService] Login failed: " + loginReason});
        f.log.clear();
        QVERIFY(!wait(f.auth.verify("t")));
        QCOMPARE(f.log.lines,
                 QStringList{"[AuthService] Token verification failed: " + verifyReason});
        QCOMPARE(f.auth.sessionToken(), "kept");
    }

    void unreadableAnswerIsADecodingError()
    {
        for (const QByteArray &body :
             {QByteArray("<html>"), QByteArray("{}"), QByteArray(), QByteArray("{\"token\":1}")}) {
            Fixture f;
            f.answer(200, body);
            const LoginResult result = wait(f.auth.login("e", "p"));
            QCOMPARE(result.error(), AuthError::decodingError());
            QVERIFY(f.log.lines.first().startsWith(
                "[AuthService] Login failed: could not decode response: "));
            QVERIFY(!f.auth.sessionToken());
        }
    }

    void transportFailureIsMinusOne()
    {
        QTcpServer closed;
        closed.listen(QHostAddress::LocalHost);
        const QString url = QStringLiteral("http://127.0.0.1:%1").arg(closed.serverPort());
        closed.close();
        QNetworkAccessManager network;
        LogCapture log;
        AuthService auth(network, BackendEndpoints(url), &device);
        QCOMPARE(wait(auth.login("e", "p")).error(), AuthError::networkError(-1));
        QVERIFY(log.lines.first().startsWith("[AuthService] Login failed: network error: "));
        log.clear();
        QCOMPARE(wait(auth.verify("t")).error(), AuthError::networkError(-1));
        QVERIFY(log.lines.first().startsWith(
            "[AuthService] Token verification failed: network error: "));
    }

    void brokenBodyIsATransportFailure()
    {
        Fixture f;
        f.server.answerWith("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n{", Ending::Close);
        QCOMPARE(wait(f.auth.login("e", "p")).error(), AuthError::networkError(-1));
    }

    void answerThatIsNotHttp()
    {
        StatuslessNetwork network;
        LogCapture log;
        AuthService auth(network, BackendEndpoints("http://127.0.0.1:1"), &device);
        QCOMPARE(wait(auth.login("e", "p")).error(), AuthError::networkError(-1));
        QCOMPARE(log.lines, QStringList{"[AuthService] Login failed: response was not HTTP"});
        log.clear();
        QCOMPARE(wait(auth.verify("t")).error(), AuthError::networkError(-1));
        QCOMPARE(log.lines,
                 QStringList{"[AuthService] Token verification failed: response was not HTTP"});
    }

    void redirectNeverCarriesCredentialsElsewhere()
    {
        ScriptedHttpServer elsewhere;
        elsewhere.answerWith(ScriptedHttpServer::answer(200, goodBody("stolen")), Ending::Close);
        for (const int status : {301, 302, 307, 308}) {
            Fixture f;
            f.answer(status, {}, "Location: " + elsewhere.baseUrl().toLatin1() + "/x\r\n");
            QCOMPARE(wait(f.auth.verify("t")).error(), AuthError::networkError(status));
        }
        QCOMPARE(elsewhere.connectionCount(), 0);
    }

    void hugeAnswerIsNotSwallowed()
    {
        Fixture f;
        f.answer(200, QByteArray(8 * 1024 * 1024, ' '));
        QVERIFY(!wait(f.auth.login("e", "p")));
    }

    void credentialsNeverReachTheLog()
    {
        Fixture f;
        f.answer(500, "secret-body");
        wait(f.auth.login("mail@example.com", "hunter2"));
        wait(f.auth.verify("token-value"));
        const QString log = f.log.lines.join('\n');
        for (const char *secret : {"mail@example.com", "hunter2", "token-value", "secret-body"})
            QVERIFY(!log.contains(secret));
    }

    void logoutForgetsEverything()
    {
        Fixture f;
        NotificationCenter notifications;
        SessionManager session(f.auth, notifications);
        int stops = 0;
        session.setHeartbeatStopper([&stops] { ++stops; });
        QSignalSpy ended(&notifications, &NotificationCenter::sessionDidEnd);
        f.auth.setSession("t", {});
        session.logout();
        QVERIFY(!session.sessionToken() && !session.currentConfig());
        QCOMPARE(f.log.lines, QStringList{"[AuthService] Session cleared from memory"});
        QCOMPARE(ended.count(), 1);
        session.logout();
        QCOMPARE(ended.count(), 2);
        QCOMPARE(stops, 2);
    }
};

class HeartbeatFixture : public Fixture
{
public:
    HeartbeatFixture() { auth.setSession("t", {}); }

    void poll()
    {
        const int before = static_cast<int>(server.requests().size());
        heartbeat.poll();
        QTRY_VERIFY(server.requests().size() > before);
    }

    NotificationCenter notifications;
    SessionManager session{auth, notifications};
    HeartbeatService heartbeat{session, notifications, [this] {
                                   return std::make_unique<AuthService>(
                                       network, BackendEndpoints(server.baseUrl()), &device);
                               }};
};

class TestHeartbeat : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void startLogsAndSchedulesWithoutPolling()
    {
        HeartbeatFixture f;
        f.heartbeat.start(86400);
        QCOMPARE(f.log.lines, QStringList{"[HeartbeatService] Starting, interval: 86400.0s"});
        QVERIFY(f.heartbeat.isScheduled());
        QCOMPARE(f.server.connectionCount(), 0);
        f.heartbeat.stop();
        QVERIFY(!f.heartbeat.isScheduled());
    }

    void successReplacesTokenAndConfiguration()
    {
        HeartbeatFixture f;
        f.answer(200, goodBody("next", 77));
        f.heartbeat.start(60);
        QSignalSpy updated(&f.notifications, &NotificationCenter::configDidUpdate);
        f.poll();
        QTRY_COMPARE(updated.count(), 1);
        QCOMPARE(f.session.sessionToken(), "next");
        QCOMPARE(f.session.currentConfig()->tokensUsed, 77);
        QCOMPARE(updated.first().first().value<AppConfigResponse>().tokensUsed, 77);
        QVERIFY(f.log.contains("[HeartbeatService] Poll succeeded, config refreshed"));
        QVERIFY(f.heartbeat.isScheduled());
        // A new interval counts from the next sign-in only.
        QCOMPARE(f.heartbeat.intervalSeconds(), 60.0);
        QCOMPARE(f.server.requests().first().header("Authorization"), "Bearer t");
    }

    void rejectedTokenExpiresTheSessionOnce()
    {
        HeartbeatFixture f;
        f.answer(401);
        QSignalSpy expired(&f.notifications, &NotificationCenter::sessionExpired);
        f.poll();
        QTRY_COMPARE(expired.count(), 1);
        QVERIFY(!f.heartbeat.isScheduled());
        QVERIFY(f.log.lines.last() ==
                QString::fromUtf8("[HeartbeatService] Token invalid/expired — session expired"));
    }

    void everyOtherFailureKeepsPolling_data()
    {
        QTest::addColumn<int>("status");
        for (const int status : {403, 500, 204, 200})
            QTest::newRow(qPrintable(QString::number(status))) << status;
    }
    void everyOtherFailureKeepsPolling()
    {
        QFETCH(int, status);
        HeartbeatFixture f;
        f.answer(status, "nonsense");
        f.heartbeat.start(3600);
        f.heartbeat.stop();
        QSignalSpy expired(&f.notifications, &NotificationCenter::sessionExpired);
        f.poll();
        QTRY_VERIFY(f.heartbeat.isScheduled());
        QVERIFY(f.log.lines.last().startsWith("[HeartbeatService] Poll failed (non-fatal): "));
        QCOMPARE(expired.count(), 0);
        QCOMPARE(f.session.sessionToken(), "t");
    }

    void withoutTokenItStops()
    {
        HeartbeatFixture f;
        f.heartbeat.start(3600);
        f.auth.clearSession();
        f.log.clear();
        f.heartbeat.poll();
        QCOMPARE(f.log.lines,
                 QStringList{QString::fromUtf8("[HeartbeatService] No session token — stopping")});
        QVERIFY(!f.heartbeat.isScheduled());
        QCOMPARE(f.server.connectionCount(), 0);
    }

    void answerAfterSignOutIsIgnored()
    {
        HeartbeatFixture f;
        f.session.setHeartbeatStopper([&f] { f.heartbeat.stop(); });
        QSignalSpy updated(&f.notifications, &NotificationCenter::configDidUpdate);
        f.poll();
        f.session.logout();
        f.server.send(0, ScriptedHttpServer::answer(200, goodBody("ghost")));
        QTRY_VERIFY(f.log.contains("[AuthService] Token verification successful"));
        QCoreApplication::processEvents();
        QVERIFY(!f.session.sessionToken());
        QCOMPARE(updated.count(), 0);
        QVERIFY(!f.heartbeat.isScheduled());
    }

    void zeroIntervalPollsAtOnce()
    {
        HeartbeatFixture f;
        f.answer(200, goodBody());
        f.heartbeat.start(0);
        QTRY_VERIFY(f.server.requests().size() >= 3);
        f.heartbeat.stop();
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    TestAuthService auth;
    TestHeartbeat heartbeat;
    return QTest::qExec(&auth, argc, argv) + QTest::qExec(&heartbeat, argc, argv);
}

#include "test_auth_service.moc"
