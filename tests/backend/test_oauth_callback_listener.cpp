#include "CallbackPages.h"
#include "backend/OAuthCallbackListener.h"
#include "fakes/LogCapture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

using namespace quellora;
using Tokens = QList<std::optional<QString>>;

namespace {

const QString prefix = QStringLiteral("[OAuthCallbackListener] ");

struct Fixture
{
    LogCapture log;
    OAuthCallbackListener listener{0};
    int ready = 0;
    Tokens tokens;

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

bool canConnect(quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    return socket.waitForConnected(500);
}

} // namespace

class TestOAuthCallbackListener : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void extractsTokenFromRequestLine_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<bool>("found");
        QTest::addColumn<QString>("token");
        const auto row = [](const char *name, const QByteArray &request,
                            const std::optional<QString> &token = {}) {
            QTest::newRow(name) << request << token.has_value() << token.value_or(QString());
        };
        const auto target = [&row](const char *name, const QByteArray &text,
                                   const std::optional<QString> &token = {}) {
            row(name, "GET " + text + " HTTP/1.1\r\nHost: x\r\n\r\n", token);
        };
        target("plain", "/oauth-callback?token=abc", "abc");
        target("percent", "/oauth-callback?token=abc%20def", "abc def");
        target("percent-encoded name", "/?%74oken=abc", "abc");
        target("reserved characters", "/?token=a%26b%3Dc%25d%2Be%23f", "a&b=c%d+e#f");
        target("plus is a plus", "/?token=a+b", "a+b");
        target("equals signs in the value", "/?token=a=b==", "a=b==");
        target("beyond ASCII", "/?token=%C3%A4%E2%82%AC", QString::fromUtf8("ä€"));
        target("beyond ASCII, raw", "/?token=\xc3\xa4", QString::fromUtf8("ä"));
        target("encoded zero", "/?token=a%00b", QString::fromLatin1("a\0b", 3));
        target("before the fragment", "/?token=abc#x", "abc");
        target("within the fragment", "/#?token=abc");
        target("other item", "/oauth-callback?error=denied");
        target("no query", "/favicon.ico");
        target("empty query", "/?");
        target("empty value", "/?token=", "");
        target("no value", "/?token");
        target("no value, then one", "/?token&token=abc");
        target("no value, and a longer name with one", "/?mytoken=1&token");
        target("wrong case", "/?Token=abc");
        target("longer name", "/?tokens=abc&xtoken=abc");
        target("empty items", "/?&&token=abc&", "abc");
        target("first counts", "/?a=1&token=x&token=y", "x");
        target("first counts, though empty", "/?token=&token=y", "");
        target("semicolon parts nothing", "/?a=1;token=x");
        target("broken percent code", "/?token=a%zzb");
        target("cut percent code", "/?token=a%2");
        target("percent code in another item", "/?x=%&token=abc");
        target("percent code that is no UTF-8", "/?token=%ff%fe");
        target("percent code of an unfinished character", "/?token=a%c3");
        target("character that no URL has", "/?token=a<b>");
        target("impossible port", ":99999999/?token=abc");
        row("other method and path", "DELETE /whatever?token=p HTTP/1.0\r\n\r\n", "p");
        row("no method that exists", "x /?token=p\r\n\r\n", "p");
        row("many blanks", "GET   /?token=b   HTTP/1.1\r\n\r\n", "b");
        row("no target", "GET\r\n\r\n");
        row("blank after the method only", "GET \r\n\r\n");
        row("empty first line", "\r\nGET /?token=a HTTP/1.1\r\n\r\n");
        row("unfinished line", "GET /?token=abc", "abc");
        row("bare line feeds", "GET /?token=abc\nHost: x\n\n");
        row("not UTF-8", QByteArray("GET /?token=\xff\xfe HTTP/1.1\r\n\r\n"));
        row("not UTF-8 in a later line", QByteArray("GET /?token=a HTTP/1.1\r\nX: \xff\r\n\r\n"));
        row("unfinished character", QByteArray("GET /?token=a HTTP/1.1\r\nX: \xc3"));
        row("zero byte", QByteArray("GET /?token=a\0b HTTP/1.1\r\n\r\n", 28));
        row("zero bytes only", QByteArray(100, '\0'));
        row("nothing", "");
        row("token in a later line", "GET / HTTP/1.1\r\nX: /?token=z\r\n\r\n");
        row("second request", "GET / HTTP/1.1\r\n\r\nGET /?token=z HTTP/1.1\r\n\r\n");
    }
    void extractsTokenFromRequestLine()
    {
        QFETCH(QByteArray, request);
        QFETCH(bool, found);
        QFETCH(QString, token);
        const auto result = OAuthCallbackListener::tokenFrom(request);
        QCOMPARE(result.has_value(), found);
        if (found)
            QCOMPARE(*result, token);
    }

    void sendsExactResponses_data()
    {
        QTest::addColumn<bool>("success");
        QTest::addColumn<QByteArray>("page");
        QTest::newRow("success") << true << QByteArray(successPage);
        QTest::newRow("failure") << false << QByteArray(failurePage);
    }
    void sendsExactResponses()
    {
        QFETCH(bool, success);
        QFETCH(QByteArray, page);
        QVERIFY(page.size() > QString::fromUtf8(page).size());
        QCOMPARE(OAuthCallbackListener::answer(success),
                 "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
                     QByteArray::number(page.size()) + "\r\nConnection: close\r\n\r\n" + page);
    }

    void reportsTheTokenOnceAndCloses()
    {
        Fixture f;
        f.start();
        QCOMPARE(f.ready, 1);
        const quint16 port = f.port();
        const QStringList started{
            prefix +
                QStringLiteral("Starting listener on 127.0.0.1:%1 for OAuth callback").arg(port),
            prefix + QStringLiteral("Listener state changed: ready")};
        QCOMPARE(f.log.lines, started);
        QCOMPARE(exchange(port, "GET /oauth-callback?token=abc HTTP/1.1\r\n\r\n"),
                 OAuthCallbackListener::answer(true));
        QCOMPARE(f.tokens, Tokens{"abc"});
        QCOMPARE(f.log.lines,
                 started +
                     QStringList{prefix + QStringLiteral("Listener state changed: cancelled")});
        QCOMPARE(f.listener.listeningPort(), 0);
        QVERIFY(!canConnect(port));
    }

    void firstRequestIsFinal()
    {
        Fixture f;
        f.start();
        QCOMPARE(exchange(f.port(), "GET /favicon.ico HTTP/1.1\r\n\r\n"),
                 OAuthCallbackListener::answer(false));
        QCOMPARE(f.tokens, Tokens{std::nullopt});
        QCOMPARE(f.listener.listeningPort(), 0);
    }

    void portInUseIsReportedImmediately()
    {
        QTcpServer other;
        QVERIFY(other.listen(QHostAddress::LocalHost));
        LogCapture log;
        OAuthCallbackListener listener(other.serverPort());
        int ready = 0;
        Tokens tokens;
        const auto start = [&] {
            listener.start([&ready] { ++ready; },
                           [&tokens](const auto &token) { tokens << token; });
        };
        start();
        QCOMPARE(ready, 0);
        QCOMPARE(tokens, Tokens{std::nullopt});
        QCOMPARE(log.lines,
                 QStringList{prefix + QStringLiteral("ERROR: Failed to create listener on port %1: "
                                                     "The bound address is already in use")
                                          .arg(other.serverPort())});
        QVERIFY(other.isListening());
        // The next attempt succeeds once the port is free.
        other.close();
        start();
        QCOMPARE(ready, 1);
        exchange(listener.listeningPort(), "GET /?token=then HTTP/1.1\r\n\r\n");
        QCOMPARE(tokens, (Tokens{std::nullopt, "then"}));
    }

    void portIsReleased()
    {
        Fixture f;
        f.start();
        const quint16 port = f.port();
        exchange(port, "GET /?error=denied HTTP/1.1\r\n\r\n");
        OAuthCallbackListener again(port);
        Tokens tokens;
        again.start([] {}, [&tokens](const auto &token) { tokens << token; });
        QCOMPARE(again.listeningPort(), port);
        exchange(port, "GET /?token=second HTTP/1.1\r\n\r\n");
        QCOMPARE(tokens, Tokens{"second"});
    }

    void restartReplacesTheListener()
    {
        Fixture f;
        f.start();
        const quint16 port = f.port();
        OAuthCallbackListener &listener = f.listener;
        // Connections of the first listener are closed.
        QTcpSocket early;
        early.connectToHost(QHostAddress::LocalHost, port);
        QTRY_COMPARE(listener.connectionCount(), 1);
        f.start();
        QCOMPARE(f.ready, 2);
        QTRY_COMPARE(early.state(), QAbstractSocket::UnconnectedState);
        exchange(f.port(), "GET /?token=second HTTP/1.1\r\n\r\n");
        QTRY_COMPARE(f.tokens, Tokens{"second"});
        if (f.port() != port)
            QVERIFY(!canConnect(port));
    }

    void restartsOnTheSamePort()
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        const quint16 port = probe.serverPort();
        probe.close();
        OAuthCallbackListener listener(port);
        Tokens tokens;
        int ready = 0;
        for (int i = 0; i < 5; ++i)
            listener.start([&ready] { ++ready; },
                           [&tokens](const auto &token) { tokens << token; });
        QCOMPARE(ready, 5);
        QVERIFY(tokens.isEmpty());
        exchange(port, "GET /?token=last HTTP/1.1\r\n\r\n");
        QCOMPARE(tokens, Tokens{"last"});
    }

    void cancelCallsNoCallback()
    {
        Fixture f;
        f.start();
        const quint16 port = f.port();
        f.listener.cancel();
        QCOMPARE(f.listener.listeningPort(), 0);
        QVERIFY(!canConnect(port));
        QVERIFY(f.tokens.isEmpty());
        f.listener.cancel();
    }

    void callbackMayRestart()
    {
        LogCapture log;
        OAuthCallbackListener listener(0);
        int ready = 0;
        listener.start(
            [] {},
            [&](const auto &) { listener.start([&ready] { ++ready; }, [](const auto &) {}); });
        QCOMPARE(exchange(listener.listeningPort(), "GET / HTTP/1.1\r\n\r\n"),
                 OAuthCallbackListener::answer(false));
        QCOMPARE(ready, 1);
        QVERIFY(listener.listeningPort() != 0);
    }

    void callbackMayDeleteTheListener()
    {
        LogCapture log;
        auto listener = std::make_unique<OAuthCallbackListener>(0);
        listener->start([] {}, [&listener](const auto &) { listener.reset(); });
        // The response is still sent.
        QCOMPARE(exchange(listener->listeningPort(), "GET /?token=a HTTP/1.1\r\n\r\n"),
                 OAuthCallbackListener::answer(true));
        QVERIFY(!listener);
    }

    void bindsLoopbackOnly()
    {
        Fixture f;
        f.start();
        QTcpServer everywhereElse;
        // Another loopback address with the same port is free: only 127.0.0.1 is bound.
        QVERIFY(everywhereElse.listen(QHostAddress("127.0.0.2"), f.port()));
    }
};

QUELLORA_TEST(QCoreApplication, TestOAuthCallbackListener)
#include "test_oauth_callback_listener.moc"
