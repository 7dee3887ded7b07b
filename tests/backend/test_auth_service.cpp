#include "SignInAnswers.h"
#include "backend/AuthService.h"
#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "fakes/StatuslessNetwork.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

#include <memory>

using namespace quellora;
using Ending = ScriptedHttpServer::Ending;

namespace {

struct Fixture
{
    ScriptedHttpServer server;
    QNetworkAccessManager network;
    LogCapture log;
    AuthService auth{network, BackendEndpoints(server.baseUrl()), &sampleDevice};

    void answer(int status, const QByteArray &body = {}, const QByteArray &headers = {})
    {
        server.answerWith(ScriptedHttpServer::answer(status, body, headers), Ending::Close);
    }
};

/// Records the transfer time-out of each request.
class TimeoutRecordingNetwork : public StatuslessNetwork
{
public:
    QList<int> timeouts;

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *body) override
    {
        timeouts << request.transferTimeout();
        return StatuslessNetwork::createRequest(operation, request, body);
    }
};

LoginResult wait(QFuture<LoginResult> future)
{
    if (!QTest::qWaitFor([&future] { return future.isFinished(); }, 10'000))
        qFatal("the call did not finish");
    return future.result();
}

} // namespace

class TestAuthService : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void loginSendsRequest()
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
        const auto resolvesAssistantName = request.headerNames();
        QVERIFY(resolvesAssistantName.indexOf("Content-Type") <
                resolvesAssistantName.indexOf("X-App-Version"));
        const QJsonObject body = QJsonDocument::fromJson(request.body()).object();
        QCOMPARE(body["email"].toString(), " me@x ");
        QCOMPARE(body["password"].toString(), " pass ");
        QCOMPARE(body["hotkeys"].toObject()["capture"].toString(), "ctrl+c");
    }

    void inactivityTimeoutIsOneMinute()
    {
        TimeoutRecordingNetwork network;
        AuthService auth(network, BackendEndpoints("http://127.0.0.1:1"), &sampleDevice);
        auth.login("me@x", "pass");
        auth.verify("token");
        QCOMPARE(network.timeouts, (QList<int>{60'000, 60'000}));
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
        const auto resolvesAssistantName = request.headerNames();
        QVERIFY(resolvesAssistantName.indexOf("Authorization") <
                resolvesAssistantName.indexOf("Content-Type"));
        QVERIFY(resolvesAssistantName.indexOf("Content-Type") <
                resolvesAssistantName.indexOf("X-App-Version"));
    }

    void mapsStatusesToErrors_data()
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
        for (const int status :
             {201, 202, 204, 301, 302, 304, 400, 404, 407, 409, 418, 429, 500, 501, 503, 599}) {
            const QString reason = QStringLiteral("unexpected status code %1").arg(status);
            QTest::newRow(qPrintable(QString::number(status)))
                << status << QByteArray()
                << QStringLiteral("Connection error (%1). Check your internet connection.")
                       .arg(status)
                << reason << reason;
        }
    }
    void mapsStatusesToErrors()
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

    void undecodableResponseIsADecodingError()
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

    void hostileBodies_data()
    {
        QTest::addColumn<QByteArray>("body");
        constexpr qsizetype depth = 100'000;
        const QByteArray open(depth, '[');
        const QByteArray arrays = open + QByteArray(depth, ']');
        const QByteArray objects =
            QByteArray("{\"a\":").repeated(depth) + "1" + QByteArray(depth, '}');
        const QByteArray good = goodBody();
        const auto with = [&good](const char *key, const QByteArray &value) {
            QByteArray body = good;
            const QByteArray name = '"' + QByteArray(key) + "\":";
            const qsizetype begin = body.indexOf(name) + name.size();
            qsizetype end = begin;
            for (int levels = 0; levels > 0 || (body[end] != ',' && body[end] != '}'); ++end)
                levels +=
                    (body[end] == '[' || body[end] == '{') - (body[end] == ']' || body[end] == '}');
            return body.replace(begin, end - begin, value);
        };
        QVERIFY(with("token", "\"fresh\"") == good);
        QTest::newRow("open arrays") << open;
        QTest::newRow("arrays") << arrays;
        QTest::newRow("objects") << objects;
        QTest::newRow("unknown key") << "{\"new\":" + arrays + ',' + good.mid(1);
        for (const char *key : {"token", "config", "availableModels", "tokensUsed"}) {
            for (const QByteArray &value :
                 {arrays, objects, QByteArray("[[]]"), QByteArray("{\"x\":[]}"),
                  QByteArray("1e999"), QByteArray("-1e-999x"),
                  QByteArray("123456789012345678901234567890"), QByteArray("0.5"),
                  QByteArray("\"\xff\"")}) {
                QTest::addRow("%s: %s", key, value.left(12).toPercentEncoding().constData())
                    << with(key, value);
            }
        }
        for (const char *model : {"[1]", "[[]]", "[{}]", "[null]", "[{\"id\":1}]",
                                  "[{\"id\":\"a\",\"displayName\":\"b\",\"descriptor\":[]}]"})
            QTest::addRow("models %s", model) << with("availableModels", model);
        QTest::newRow("a million models")
            << with("availableModels", '[' + QByteArray("{},").repeated(1'000'000) + "{}]");
    }
    /// Nothing of them is followed or believed: a word each, and the session is as before.
    void hostileBodies()
    {
        QFETCH(QByteArray, body);
        Fixture f;
        f.auth.setSession("kept", {});
        f.answer(200, body);
        const LoginResult login = wait(f.auth.login("e", "p"));
        const LoginResult refresh = wait(f.auth.verify("t"));
        for (const LoginResult &result : {login, refresh}) {
            QVERIFY(!result);
            QCOMPARE(result.error(), AuthError::decodingError());
        }
        QCOMPARE(f.auth.sessionToken(), "kept");
        QCOMPARE(f.log.lines.size(), 2);
    }

    void transportFailureHasStatusMinusOne()
    {
        QTcpServer closed;
        closed.listen(QHostAddress::LocalHost);
        const QString url = QStringLiteral("http://127.0.0.1:%1").arg(closed.serverPort());
        closed.close();
        QNetworkAccessManager network;
        LogCapture log;
        AuthService auth(network, BackendEndpoints(url), &sampleDevice);
        QCOMPARE(wait(auth.login("e", "p")).error(), AuthError::networkError(-1));
        QVERIFY(log.lines.first().startsWith("[AuthService] Login failed: network error: "));
        log.clear();
        QCOMPARE(wait(auth.verify("t")).error(), AuthError::networkError(-1));
        QVERIFY(log.lines.first().startsWith(
            "[AuthService] Token verification failed: network error: "));
    }

    void lostConnectionIsReportedWithoutRetry_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("reset");
        for (const bool reset : {false, true}) {
            const char *ending = reset ? "reset" : "close";
            QTest::addRow("before an answer, %s", ending) << QByteArray() << reset;
            QTest::addRow("after the header, %s", ending)
                << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n") << reset;
            QTest::addRow("within the body, %s", ending)
                << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n{") << reset;
        }
    }
    void lostConnectionIsReportedWithoutRetry()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, reset);
        Fixture f;
        f.server.answerWith(bytes, reset ? Ending::Reset : Ending::Close);
        QCOMPARE(wait(f.auth.login("e", "p")).error(), AuthError::networkError(-1));
        QCOMPARE(f.log.lines.size(), 1);
        QVERIFY(f.log.lines.first().startsWith("[AuthService] Login failed: network error: "));
        QCOMPARE(wait(f.auth.verify("t")).error(), AuthError::networkError(-1));
        QCOMPARE(f.log.lines.size(), 2);
        QVERIFY(f.log.lines.last().startsWith(
            "[AuthService] Token verification failed: network error: "));
        // Password and token were sent once per call.
        QCOMPARE(f.server.requests().size(), 2);
    }

    void nonHttpResponseHasNoStatus()
    {
        StatuslessNetwork network;
        LogCapture log;
        AuthService auth(network, BackendEndpoints("http://127.0.0.1:1"), &sampleDevice);
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

    void oversizedResponseIsADecodingError()
    {
        Fixture f;
        // Valid except for its size.
        f.answer(200, goodBody() + QByteArray(10'000'000, ' '));
        QCOMPARE(wait(f.auth.login("e", "p")).error(), AuthError::decodingError());
        QCOMPARE(f.log.lines, QStringList{"[AuthService] Login failed: could not decode response: "
                                          "it is longer than 4194304 bytes"});
        QVERIFY(!f.auth.sessionToken());
    }

    void doesNotWaitForBodyOfErrorStatus()
    {
        Fixture f;
        f.server.answerWith("HTTP/1.1 403 S\r\nContent-Length: 1000000000\r\n\r\n" +
                                QByteArray(100'000, 'x'),
                            Ending::KeepOpen);
        QCOMPARE(wait(f.auth.login("e", "p")).error(), AuthError::accountSuspended());
        QTRY_VERIFY(f.server.requests().first().disconnected);
    }

    void tokenWithControlCharactersIsNotSent()
    {
        for (const char *token : {"t\r\nX-Evil: 1", "t\n", "t\x7f"}) {
            Fixture f;
            QCOMPARE(wait(f.auth.verify(QLatin1String(token))).error(),
                     AuthError::networkError(-1));
            QCOMPARE(f.log.lines,
                     QStringList{"[AuthService] Token verification failed: network error: The "
                                 "session token contains control characters"});
            QCOMPARE(f.server.connectionCount(), 0);
        }
    }

    void emptyTokenIsVerified()
    {
        Fixture f;
        f.answer(401);
        QCOMPARE(wait(f.auth.verify("")).error(), AuthError::invalidCredentials());
        QCOMPARE(f.server.requests().first().header("Authorization"), "Bearer");
    }

    void cancellingAbortsTheTransfer()
    {
        Fixture f;
        QSignalSpy arrived(&f.server, &ScriptedHttpServer::requestArrived);
        QFuture<LoginResult> call = f.auth.login("e", "p");
        QVERIFY(arrived.wait());
        call.cancel();
        QTRY_VERIFY(f.server.requests().first().disconnected);
        QVERIFY(call.isFinished() && call.resultCount() == 0);
        QCOMPARE(f.log.lines, QStringList());
    }

    void cancelledCallStoresNothing()
    {
        Fixture f;
        QSignalSpy arrived(&f.server, &ScriptedHttpServer::requestArrived);
        QFuture<LoginResult> call = f.auth.login("e", "p");
        QVERIFY(arrived.wait());
        // The response is already in transit.
        f.server.send(0, ScriptedHttpServer::answer(200, goodBody("ghost")));
        call.cancel();
        f.answer(401);
        QVERIFY(!wait(f.auth.verify("t")));
        QVERIFY(!f.auth.sessionToken());
        QCOMPARE(f.log.lines,
                 QStringList{"[AuthService] Token verification failed: invalid or expired token"});
    }

    void deletingTheServiceAbortsItsCalls()
    {
        Fixture f;
        auto service = std::make_unique<AuthService>(
            f.network, BackendEndpoints(f.server.baseUrl()), &sampleDevice);
        QSignalSpy arrived(&f.server, &ScriptedHttpServer::requestArrived);
        const QFuture<LoginResult> call = service->verify("t");
        QVERIFY(arrived.wait());
        service.reset();
        QVERIFY(call.isFinished() && call.resultCount() == 0);
        QTRY_VERIFY(f.server.requests().first().disconnected);
        QCOMPARE(f.log.lines, QStringList());
    }

    void credentialsAreNotLogged()
    {
        Fixture f;
        f.answer(500, "secret-body");
        wait(f.auth.login("mail@example.com", "hunter2"));
        wait(f.auth.verify("token-value"));
        const QString log = f.log.lines.join('\n');
        for (const char *secret : {"mail@example.com", "hunter2", "token-value", "secret-body"})
            QVERIFY(!log.contains(secret));
    }

    void logoutClearsTheSession()
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

QUELLORA_TEST(QCoreApplication, TestAuthService)
#include "test_auth_service.moc"
