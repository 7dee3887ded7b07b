#include "backend/OAuthCallbackListener.h"
#include "fakes/LogCapture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <vector>

using namespace quellora;
using namespace std::chrono_literals;
using Tokens = QList<std::optional<QString>>;

namespace {

const QString prefix = QStringLiteral("[OAuthCallbackListener] ");
const QByteArray good = "GET /oauth-callback?token=abc HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";

/// A client over a raw connection that records what it receives.
struct Client
{
    explicit Client(quint16 port)
    {
        QObject::connect(&socket, &QTcpSocket::readyRead, &socket,
                         [this] { answer += socket.readAll(); });
        socket.connectToHost(QHostAddress::LocalHost, port);
        if (!socket.waitForConnected(5000))
            qFatal("no connection: %s", qPrintable(socket.errorString()));
    }
    void send(const QByteArray &bytes)
    {
        socket.write(bytes);
        socket.flush();
    }
    void reset()
    {
        const linger now{1, 0};
        setsockopt(static_cast<int>(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &now,
                   sizeof now);
        socket.abort();
    }
    /// Closes the connection for writing only.
    void endWriting() { shutdown(static_cast<int>(socket.socketDescriptor()), SHUT_WR); }
    bool waitForEnd()
    {
        return QTest::qWaitFor(
            [this] { return socket.state() == QAbstractSocket::UnconnectedState; });
    }

    QTcpSocket socket;
    QByteArray answer;
};

struct Fixture
{
    explicit Fixture(CallbackConnection::Timeouts timeouts = {10s, 10s}) : listener(0, timeouts)
    {
        listener.start([] {}, [this](const auto &token) { tokens << token; });
        port = listener.listeningPort();
        log.clear();
    }
    bool waitForToken()
    {
        return QTest::qWaitFor([this] { return !tokens.isEmpty(); });
    }

    LogCapture log;
    OAuthCallbackListener listener;
    quint16 port = 0;
    Tokens tokens;
};

} // namespace

/// Misbehaving clients must not block the program, hold the port or grow memory use.
class TestOAuthHostileClients : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral("."))); }

    void silentConnectionIsIgnored()
    {
        Fixture f({50ms, 10s});
        Client silent(f.port);
        QVERIFY(silent.waitForEnd());
        QVERIFY(silent.answer.isEmpty());
        QVERIFY(f.tokens.isEmpty());
        QCOMPARE(f.log.lines,
                 QStringList{prefix + QStringLiteral("Connection error: no request came in time")});
        QCOMPARE(f.listener.connectionCount(), 0);
        // The listener still accepts the browser's request.
        Client browser(f.port);
        browser.send(good);
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{"abc"});
    }

    void spareConnectionDoesNotDelayTheRequest()
    {
        Fixture f;
        Client spare(f.port);
        QTRY_COMPARE(f.listener.connectionCount(), 1);
        Client browser(f.port);
        browser.send(good);
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{"abc"});
        QVERIFY(browser.waitForEnd());
        QCOMPARE(browser.answer, OAuthCallbackListener::answer(true));
        QVERIFY(spare.waitForEnd());
    }

    void slowRequestIsEvaluatedAtTimeout()
    {
        Fixture f({150ms, 10s});
        Client slow(f.port);
        QTimer trickle;
        connect(&trickle, &QTimer::timeout, &slow.socket, [&slow] { slow.send("G"); });
        trickle.start(10ms);
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{std::nullopt});
        QTRY_COMPARE(slow.answer, OAuthCallbackListener::answer(false));
        QCOMPARE(f.listener.listeningPort(), 0);
    }

    void tokenOfUnfinishedLineIsAccepted()
    {
        Fixture f({50ms, 10s});
        Client slow(f.port);
        slow.send("GET /?token=abc");
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{"abc"});
    }

    void requestMayArriveInPieces()
    {
        Fixture f;
        Client client(f.port);
        for (const char byte : good) {
            client.send(QByteArray(1, byte));
            QCoreApplication::processEvents();
        }
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{"abc"});
        QVERIFY(client.waitForEnd());
        QCOMPARE(client.answer, OAuthCallbackListener::answer(true));
    }

    void restOfHeaderMayArriveAfterTheResponse()
    {
        Fixture f;
        Client client(f.port);
        client.send("GET /?token=abc HTTP/1.1\r\nHost: 127.0.0.1\r\n");
        QVERIFY(f.waitForToken());
        QTRY_COMPARE(client.answer, OAuthCallbackListener::answer(true));
        // Closing with this data unread would reset the connection.
        QCOMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
        client.send("Accept: */*\r\n\r");
        client.send("\n");
        QVERIFY(client.waitForEnd());
        QCOMPARE(client.socket.error(), QAbstractSocket::RemoteHostClosedError);
    }

    void doesNotWaitForUnfinishedHeader()
    {
        Fixture f({10s, 50ms});
        Client client(f.port);
        client.send("GET /?token=abc HTTP/1.1\r\nHost: 127.0.0.1\r\n");
        QVERIFY(f.waitForToken());
        QVERIFY(client.waitForEnd());
        QCOMPARE(client.answer, OAuthCallbackListener::answer(true));
    }

    void endlessRequestIsCutOff_data()
    {
        QTest::addColumn<QByteArray>("begin");
        QTest::addColumn<bool>("found");
        QTest::newRow("no line end") << QByteArray("GET /?x=") << false;
        QTest::newRow("token at once") << QByteArray("GET /?token=abc&x=") << true;
        QTest::newRow("header without end") << good.left(good.size() - 2) + "X: " << true;
        QTest::newRow("garbage") << QByteArray(1, '\0') << false;
    }
    void endlessRequestIsCutOff()
    {
        QFETCH(QByteArray, begin);
        QFETCH(bool, found);
        Fixture f({10s, 50ms});
        Client client(f.port);
        client.send(begin + QByteArray(20'000'000, 'a'));
        QVERIFY(f.waitForToken());
        // More than the buffers in between hold: the rest was not read.
        QVERIFY(client.socket.bytesToWrite() > 1'000'000);
        QCOMPARE(f.tokens.first().has_value(), found);
        QCOMPARE(f.listener.listeningPort(), 0);
        QVERIFY(client.waitForEnd());
    }

    void onlyFirstEightKilobytesAreEvaluated()
    {
        const auto request = [](qsizetype size) {
            const QByteArray begin = "GET /?x=";
            const QByteArray end = "&token=abc\r\n\r\n";
            return begin + QByteArray(size - begin.size() - end.size(), 'a') + end;
        };
        for (const bool fits : {true, false}) {
            Fixture f({10s, 50ms});
            Client client(f.port);
            // The token ends with the line, four bytes before the end of the request.
            client.send(request(8192 + (fits ? 4 : 4000)));
            QVERIFY(f.waitForToken());
            QCOMPARE(f.tokens.first().has_value(), fits);
            QTRY_COMPARE(client.answer, OAuthCallbackListener::answer(fits));
        }
    }

    void pipelinedRequestsGetOneResponse()
    {
        Fixture f;
        Client client(f.port);
        client.send("GET /first HTTP/1.1\r\n\r\n" + good + good);
        QVERIFY(client.waitForEnd());
        QCOMPARE(client.answer, OAuthCallbackListener::answer(false));
        QCOMPARE(f.tokens, Tokens{std::nullopt});
    }

    void immediateDisconnectReportsNoToken_data()
    {
        QTest::addColumn<bool>("reset");
        QTest::newRow("close") << false;
        QTest::newRow("reset") << true;
    }
    void immediateDisconnectReportsNoToken()
    {
        QFETCH(bool, reset);
        Fixture f;
        Client client(f.port);
        QTRY_COMPARE(f.listener.connectionCount(), 1);
        if (reset)
            client.reset();
        else
            client.socket.close();
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{std::nullopt});
        QStringList expected{
            prefix +
            QStringLiteral("Failed to send response: The remote host closed the connection")};
        if (reset)
            expected.prepend(prefix + QStringLiteral("Connection error: Connection reset by peer"));
        QCOMPARE(f.log.lines.mid(0, expected.size()), expected);
        QCOMPARE(f.listener.listeningPort(), 0);
    }

    void resetWithinLineEvaluatesReceivedData()
    {
        Fixture f;
        Client client(f.port);
        client.send("GET /?token=abc");
        QTRY_COMPARE(f.listener.connectionCount(), 1);
        QTRY_VERIFY(!f.listener.findChild<CallbackConnection *>()->isSilent());
        client.reset();
        QVERIFY(f.waitForToken());
        QCOMPARE(f.log.lines.first(),
                 prefix + QStringLiteral("Connection error: Connection reset by peer"));
        QCOMPARE(f.tokens, Tokens{"abc"});
    }

    void disconnectBeforeResponseStopsListening_data() { immediateDisconnectReportsNoToken_data(); }
    void disconnectBeforeResponseStopsListening()
    {
        QFETCH(bool, reset);
        Fixture f;
        Client client(f.port);
        client.send(good);
        if (reset)
            client.reset();
        else
            client.socket.close();
        QVERIFY(f.waitForToken());
        // A reset may discard data sent before it.
        if (!reset)
            QCOMPARE(f.tokens, Tokens{"abc"});
        QCOMPARE(f.listener.listeningPort(), 0);
    }

    void disconnectWithinLineEvaluatesReceivedData()
    {
        Fixture f;
        Client client(f.port);
        client.send("GET /?token=abc");
        client.socket.close();
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{"abc"});
    }

    void halfClosedConnectionGetsTheResponse()
    {
        Fixture f;
        Client client(f.port);
        client.send(good);
        client.endWriting();
        QVERIFY(client.waitForEnd());
        QCOMPARE(client.answer, OAuthCallbackListener::answer(true));
        QCOMPARE(f.tokens, Tokens{"abc"});
    }

    void clientThatNeverReadsTimesOut()
    {
        Fixture f({50ms, 50ms});
        Client client(f.port);
        client.socket.disconnect();
        client.socket.setReadBufferSize(1);
        client.send(good);
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{"abc"});
        QCOMPARE(f.listener.listeningPort(), 0);
    }

    void connectionCountIsBounded()
    {
        Fixture f;
        std::vector<std::unique_ptr<Client>> crowd;
        for (int i = 0; i < 200; ++i) {
            crowd.push_back(std::make_unique<Client>(f.port));
            QCoreApplication::processEvents();
            QVERIFY(f.listener.connectionCount() <= OAuthCallbackListener::maxConnections);
        }
        Client browser(f.port);
        browser.send(good);
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{"abc"});
        QVERIFY(browser.waitForEnd());
        QCOMPARE(browser.answer, OAuthCallbackListener::answer(true));
        QCOMPARE(f.listener.connectionCount(), 0);
        for (const auto &client : crowd)
            QVERIFY(client->waitForEnd());
    }

    void thousandsOfConnections()
    {
        Fixture f;
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit most{std::min<rlim_t>(before.rlim_max, 8192), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &most);
        const int wanted = most.rlim_cur > 5000 ? 3000 : static_cast<int>(most.rlim_cur / 2);
        std::vector<int> crowd;
        int mostHeld = 0;
        QElapsedTimer longest;
        qint64 longestTurn = 0;
        for (int i = 0; i < wanted; ++i) {
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port = htons(f.port);
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            QVERIFY(socket >= 0);
            // Not connected yet, or refused: the listener decides.
            static_cast<void>(
                ::connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address));
            crowd.push_back(socket);
            if (i % 50 == 0) {
                longest.start();
                QCoreApplication::processEvents();
                longestTurn = std::max(longestTurn, longest.elapsed());
            }
            mostHeld = std::max(mostHeld, f.listener.connectionCount());
        }
        Client browser(f.port);
        browser.send(good);
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{"abc"});
        QVERIFY(mostHeld <= OAuthCallbackListener::maxConnections);
        QVERIFY(browser.waitForEnd());
        QCOMPARE(browser.answer, OAuthCallbackListener::answer(true));
        for (const int socket : crowd)
            ::close(socket);
        setrlimit(RLIMIT_NOFILE, &before);
        qInfo("listener connections tried: %d, held at once: %d, longest turn: %lld ms", wanted,
              mostHeld, longestTurn);
    }

    void requestsOfWebPages_data()
    {
        QTest::addColumn<QByteArray>("headers");
        QTest::addColumn<bool>("isForeign");
        const auto row = [](const char *name, const QByteArray &headers, bool isForeign) {
            QTest::newRow(name) << headers << isForeign;
        };
        const QByteArray host = "Host: 127.0.0.1:9877\r\n";
        row("browser",
            host + "Sec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: navigate\r\n"
                   "Sec-Fetch-User: ?1\r\nSec-Fetch-Dest: document\r\n",
            false);
        row("older browser", host, false);
        row("name of this machine", "HOST:localhost:9877\r\n", false);
        row("address of version 6", "Host: [::1]:9877\r\n", false);
        row("without port", "Host: 127.0.0.1\r\n", false);
        row("origin that is none", host + "Origin: null\r\n", false);
        row("nothing", "", false);
        row("rebound name", "Host: evil.example:9877\r\n", true);
        row("rebound name, no port", "Host: evil.example\r\n", true);
        row("two hosts", host + "Host: evil.example\r\n", true);
        row("two hosts, the other first", "Host: evil.example\r\n" + host, true);
        row("no host", "Host:\r\n", true);
        row("address in a name", "Host: 127.0.0.1.evil.example:9877\r\n", true);
        row("user before a name", "Host: 127.0.0.1:80@evil.example\r\n", true);
        row("not a port", "Host: 127.0.0.1:x\r\n", true);
        row("other address", "Host: 10.0.0.1:9877\r\n", true);
        row("origin", host + "Origin: https://evil.example\r\n", true);
        row("origin of another port", host + "Origin: http://127.0.0.1:1\r\n", true);
        row("origin, lower case", host + "origin: https://evil.example\r\n", true);
        for (const char *mode : {"cors", "no-cors", "same-origin", "websocket"})
            QTest::addRow("mode %s", mode) << host + "Sec-Fetch-Mode: " + mode + "\r\n" << true;
        for (const char *kind : {"image", "script", "iframe", "empty", "object"})
            QTest::addRow("for %s", kind)
                << host + "Sec-Fetch-Mode: navigate\r\nSec-Fetch-Dest: " + kind + "\r\n"
                << true;
    }
    /// They neither sign in with the token they bring nor end the sign-in under way.
    void requestsOfWebPages()
    {
        QFETCH(QByteArray, headers);
        QFETCH(bool, isForeign);
        Fixture f({200ms, 200ms});
        Client page(f.port);
        page.send("GET /oauth-callback?token=of-an-attacker HTTP/1.1\r\n" + headers + "\r\n");
        QVERIFY(page.waitForEnd());
        QCOMPARE(page.answer, OAuthCallbackListener::answer(!isForeign));
        if (!isForeign) {
            QCOMPARE(f.tokens, Tokens{"of-an-attacker"});
            return;
        }
        QCOMPARE(f.tokens, Tokens());
        QCOMPARE(f.listener.connectionCount(), 0);
        QCOMPARE(
            f.log.lines,
            QStringList{prefix + QStringLiteral("WARNING: Refused a request of another web page")});
        Client browser(f.port);
        browser.send(good);
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, Tokens{"abc"});
    }

    void onlyWholeLinesTellAWebPage()
    {
        const QByteArray begin = "GET /?token=abc HTTP/1.1\r\nHost: 127.0.0.1\r\n";
        for (const char *rest :
             {"Host: evil.example", "Sec-Fetch-Mode: nav", "\r\nHost: evil.example\r\n"})
            QVERIFY(!OAuthCallbackListener::isForeign(begin + rest));
        QVERIFY(OAuthCallbackListener::isForeign(begin + "Host: evil.example\r\n"));
    }

    void smuggledAndStuffedRequests_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<bool>("found");
        const QByteArray line = "GET /oauth-callback?token=abc HTTP/1.1\r\nHost: 127.0.0.1\r\n";
        const auto row = [](const char *name, const QByteArray &request, bool found) {
            QTest::newRow(name) << request << found;
        };
        row("thousands of headers", line + QByteArray("X: y\r\n").repeated(5000) + "\r\n", true);
        row("one long header", line + "X: " + QByteArray(100'000, 'y') + "\r\n\r\n", true);
        row("two lengths", line + "Content-Length: 0\r\nContent-Length: 50\r\n\r\n" + good, true);
        row("length and chunks",
            line +
                "Content-Length: 4\r\nTransfer-Encoding: chunked\r\n\r\n"
                "0\r\n\r\n" +
                good,
            true);
        row("second request in the body",
            "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 99\r\n\r\n" + good, false);
        row("folded line", "GET / HTTP/1.1\r\n ?token=abc\r\n\r\n", false);
        row("address as a whole", "GET http://evil.example/?token=abc HTTP/1.1\r\n\r\n", true);
        row("connect", "CONNECT evil.example:443 HTTP/1.1\r\n\r\n", false);
        row("preface of version 2", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", false);
        row("encryption",
            QByteArray::fromHex("16030100c8010000c40303") + QByteArray(190, 'x') + "\r\n", false);
        row("same code twice", "GET /?token=abc&token=abc HTTP/1.1\r\n\r\n", true);
    }
    void smuggledAndStuffedRequests()
    {
        QFETCH(QByteArray, request);
        QFETCH(bool, found);
        Fixture f({500ms, 50ms});
        Client client(f.port);
        client.send(request);
        QVERIFY(f.waitForToken());
        QCOMPARE(f.tokens, found ? Tokens{"abc"} : Tokens{std::nullopt});
        QVERIFY(client.waitForEnd());
        // One answer at most: what follows is nobody's request.
        QVERIFY(client.answer.count("HTTP/1.1 200 OK") <= 1);
        QCOMPARE(f.listener.listeningPort(), 0);
    }

    void sameCodeTwice()
    {
        Fixture f;
        Client first(f.port);
        Client second(f.port);
        first.send(good);
        second.send(good);
        QVERIFY(f.waitForToken());
        QVERIFY(first.waitForEnd());
        QVERIFY(second.waitForEnd());
        QCOMPARE(f.tokens.size(), 1);
        QCOMPARE(first.answer.isEmpty(), !second.answer.isEmpty());
    }

    void tokensAreNotLogged()
    {
        for (const char *target : {"/?token=secret-code", "/?x=secret-code", "secret-code",
                                   "/?token=secret-code%ff", "/secret-code?token=%"}) {
            Fixture f({50ms, 50ms});
            Client client(f.port);
            client.send(QByteArray("GET ") + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
            QVERIFY(f.waitForToken());
            QVERIFY(client.waitForEnd());
            QVERIFY(!f.log.lines.join(QLatin1Char('\n')).contains(QStringLiteral("secret-code")));
        }
    }

    void oneOfManyRequestsIsAnswered()
    {
        Fixture f;
        std::vector<std::unique_ptr<Client>> crowd;
        for (int i = 0; i < 20; ++i) {
            crowd.push_back(std::make_unique<Client>(f.port));
            crowd.back()->send("GET /?token=" + QByteArray::number(i) + " HTTP/1.1\r\n\r\n");
        }
        QVERIFY(f.waitForToken());
        qsizetype answers = 0;
        for (const auto &client : crowd) {
            QVERIFY(client->waitForEnd());
            answers += client->answer.isEmpty() ? 0 : 1;
        }
        QCOMPARE(answers, 1);
        QCOMPARE(f.tokens.size(), 1);
    }

    void listenerFailureReportsNoToken()
    {
        Fixture f;
        Client client(f.port);
        // No file descriptor is left for accepting the pending connection.
        const int next = dup(0);
        close(next);
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none{static_cast<rlim_t>(next), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        const bool hasReported = f.waitForToken();
        setrlimit(RLIMIT_NOFILE, &before);
        QVERIFY(hasReported);
        QCOMPARE(f.tokens, Tokens{std::nullopt});
        QCOMPARE(f.log.lines.value(0), prefix + QStringLiteral("Listener state changed: failed"));
        QVERIFY(
            f.log.lines.value(1).startsWith(prefix + QStringLiteral("ERROR: Listener failed: ")));
        QCOMPARE(f.listener.listeningPort(), 0);
    }
};

QUELLORA_TEST(QCoreApplication, TestOAuthHostileClients)
#include "test_oauth_hostile_clients.moc"
