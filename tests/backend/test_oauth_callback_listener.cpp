#include "backend/OAuthCallbackListener.h"
#include "fakes/LogCapture.h"

#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

using namespace quellora;

namespace {

const QString prefix = QStringLiteral("[OAuthCallbackListener] ");

struct Fixture
{
    LogCapture log;
    OAuthCallbackListener listener{0};
    int ready = 0;
    QList<std::optional<QString>> tokens;

    void start()
    {
        listener.start([this] { ++ready; },
                       [this](const std::optional<QString> &token) { tokens << token; });
    }
    quint16 port() const { return listener.listeningPort(); }
};

/// Sends a request and returns everything that comes back until the connection closes.
QByteArray exchange(quint16 port, const QByteArray &request)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    QByteArray answer;
    QObject::connect(&socket, &QTcpSocket::readyRead, [&] { answer += socket.readAll(); });
    QObject::connect(&socket, &QTcpSocket::connected, [&] { socket.write(request); });
    QSignalSpy closed(&socket, &QTcpSocket::disconnected);
    closed.wait(4000);
    return answer + socket.readAll();
}

} // namespace

class TestOAuthCallbackListener : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void tokensAreTakenFromTheRequestLine_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<bool>("found");
        QTest::addColumn<QString>("token");
        const auto row = [](const char *name, const QByteArray &request, bool found,
                            const QString &token = {}) {
            QTest::newRow(name) << request << found << token;
        };
        row("plain", "GET /oauth-callback?token=abc HTTP/1.1\r\nHost: x\r\n\r\n", true, "abc");
        row("percent", "GET /oauth-callback?token=abc%20def HTTP/1.1\r\n\r\n", true, "abc def");
        row("other item", "GET /oauth-callback?error=denied HTTP/1.1\r\n\r\n", false);
        row("favicon", "GET /favicon.ico HTTP/1.1\r\n\r\n", false);
        row("no target", "GET\r\n\r\n", false);
        row("empty value", "GET /?token= HTTP/1.1\r\n\r\n", true, "");
        row("no value", "GET /?token HTTP/1.1\r\n\r\n", false);
        row("wrong case", "GET /?Token=abc HTTP/1.1\r\n\r\n", false);
        row("first counts", "GET /?a=1&token=x&token=y HTTP/1.1\r\n\r\n", true, "x");
        row("any method and path", "POST /whatever?token=p HTTP/1.0\r\n\r\n", true, "p");
        row("many blanks", "GET   /?token=b   HTTP/1.1\r\n\r\n", true, "b");
        row("not UTF-8", QByteArray("GET /?token=\xff\xfe HTTP/1.1\r\n\r\n"), false);
        row("nothing", "", false);
        row("token in a later line", "GET / HTTP/1.1\r\nX: /?token=z\r\n\r\n", false);
    }
    void tokensAreTakenFromTheRequestLine()
    {
        QFETCH(QByteArray, request);
        QFETCH(bool, found);
        QFETCH(QString, token);
        const auto result = OAuthCallbackListener::tokenFrom(request);
        QCOMPARE(result.has_value(), found);
        if (found)
            QCOMPARE(*result, token);
    }

    void answersAreFramedInBytes()
    {
        for (const bool success : {true, false}) {
            const QByteArray answer = OAuthCallbackListener::answer(success);
            const qsizetype split = answer.indexOf("\r\n\r\n");
            const QByteArray body = answer.mid(split + 4);
            QCOMPARE(answer.left(split),
                     "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n"
                     "Content-Length: " +
                         QByteArray::number(body.size()) + "\r\nConnection: close");
            QVERIFY(body.startsWith("<!DOCTYPE html>\n<html>\n<head>\n  <title>Vantiro — "));
            QVERIFY(body.endsWith("  </div>\n</body>\n</html>"));
        }
        QVERIFY(OAuthCallbackListener::answer(true).contains(
            "    .check { font-size: 48px; margin-bottom: 20px; }\n  </style>\n</head>\n<body>\n"
            "  <div>\n    <div class=\"check\">&#10003;</div>\n    <h1>You're signed in</h1>\n"
            "    <p>You can close this browser tab and return to Vantiro.</p>\n"));
        QVERIFY(OAuthCallbackListener::answer(false).contains(
            "    .x { font-size: 48px; margin-bottom: 20px; }\n  </style>\n</head>\n<body>\n"
            "  <div>\n    <div class=\"x\">✕</div>\n    <h1>Sign-in failed</h1>\n"
            "    <p>You can close this tab and try again in Vantiro.</p>\n"));
    }

    void deliversTheTokenOnceAndCloses()
    {
        Fixture f;
        f.start();
        QCOMPARE(f.ready, 1);
        const quint16 port = f.port();
        QCOMPARE(
            f.log.lines.first(),
            prefix +
                QStringLiteral("Starting listener on 127.0.0.1:%1 for OAuth callback").arg(port));
        QCOMPARE(exchange(port, "GET /oauth-callback?token=abc HTTP/1.1\r\n\r\n"),
                 OAuthCallbackListener::answer(true));
        QCOMPARE(f.tokens, QList<std::optional<QString>>{"abc"});
        QCOMPARE(f.listener.listeningPort(), 0);
        QTcpSocket late;
        late.connectToHost(QHostAddress::LocalHost, port);
        QVERIFY(!late.waitForConnected(500));
    }

    void firstConnectionDecides()
    {
        Fixture f;
        f.start();
        QCOMPARE(exchange(f.port(), "GET /favicon.ico HTTP/1.1\r\n\r\n"),
                 OAuthCallbackListener::answer(false));
        QCOMPARE(f.tokens, QList<std::optional<QString>>{std::nullopt});
    }

    void requestInPiecesIsPutTogether()
    {
        Fixture f;
        f.start();
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, f.port());
        QTRY_COMPARE(socket.state(), QAbstractSocket::ConnectedState);
        for (const char byte : QByteArray("GET /?token=slow HTTP/1.1\r\n")) {
            socket.write(&byte, 1);
            socket.flush();
            QCoreApplication::processEvents();
        }
        QTRY_COMPARE(f.tokens.size(), 1);
        QCOMPARE(f.tokens.first(), std::optional<QString>("slow"));
    }

    void hugeRequestIsJudgedByItsBeginning()
    {
        Fixture f;
        f.start();
        exchange(f.port(), "GET /?x=" + QByteArray(200000, 'a') + "&token=late HTTP/1.1\r\n\r\n");
        QTRY_COMPARE(f.tokens.size(), 1);
        QVERIFY(!f.tokens.first());
    }

    void clientThatLeavesGivesNoToken()
    {
        Fixture f;
        f.start();
        {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, f.port());
            QTRY_COMPARE(socket.state(), QAbstractSocket::ConnectedState);
        }
        QTRY_COMPARE(f.tokens.size(), 1);
        QVERIFY(!f.tokens.first());
        QCOMPARE(f.listener.listeningPort(), 0);
    }

    void takenPortIsReportedAtOnce()
    {
        QTcpServer other;
        QVERIFY(other.listen(QHostAddress::LocalHost));
        LogCapture log;
        OAuthCallbackListener listener(other.serverPort());
        int ready = 0;
        QList<std::optional<QString>> tokens;
        listener.start([&ready] { ++ready; }, [&tokens](auto token) { tokens << token; });
        QCOMPARE(ready, 0);
        QCOMPARE(tokens, QList<std::optional<QString>>{std::nullopt});
        QVERIFY(log.lines.first().startsWith(
            prefix + QStringLiteral("ERROR: Failed to create listener on port %1: ")
                         .arg(other.serverPort())));
    }

    void startingAgainReplacesTheListener()
    {
        Fixture f;
        f.start();
        f.start();
        QCOMPARE(f.ready, 2);
        exchange(f.port(), "GET /?token=second HTTP/1.1\r\n\r\n");
        QTRY_COMPARE(f.tokens, QList<std::optional<QString>>{"second"});
    }

    void cancelSaysNothing()
    {
        Fixture f;
        f.start();
        const quint16 port = f.port();
        f.listener.cancel();
        QCOMPARE(f.listener.listeningPort(), 0);
        QTcpSocket late;
        late.connectToHost(QHostAddress::LocalHost, port);
        QVERIFY(!late.waitForConnected(500));
        QVERIFY(f.tokens.isEmpty());
    }

    void onlyThisMachineIsServed()
    {
        Fixture f;
        f.start();
        QTcpServer everywhereElse;
        // Another loopback address on the same port is still free: nothing wider is bound.
        QVERIFY(everywhereElse.listen(QHostAddress("127.0.0.2"), f.port()));
    }
};

QTEST_GUILESS_MAIN(TestOAuthCallbackListener)
#include "test_oauth_callback_listener.moc"
