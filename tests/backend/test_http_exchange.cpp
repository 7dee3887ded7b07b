#include "backend/Http.h"
#include "backend/HttpExchange.h"
#include "fakes/ScriptedHttpServer.h"
#include "fakes/StatuslessNetwork.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>
#include <QTimer>

#include <memory>

using namespace quellora;
using namespace std::chrono_literals;
using Ending = ScriptedHttpServer::Ending;

namespace {

const QString lost = QStringLiteral("The network connection was lost.");

/// One exchange with a scripted server.
struct Fixture
{
    ScriptedHttpServer server;
    std::unique_ptr<QNetworkAccessManager> network = std::make_unique<QNetworkAccessManager>();
    QObject owner;
    QList<HttpAnswer> answers;

    HttpExchange *post(HttpExchange::Limits limits = {200, 1000, 0ms},
                       std::chrono::milliseconds inactivityTimeout = 10s)
    {
        const QNetworkRequest request =
            http::request(QUrl(server.baseUrl() + QStringLiteral("/x")), inactivityTimeout);
        auto *exchange =
            new HttpExchange(http::postOnce(*network, request, "question"), limits, &owner);
        QObject::connect(exchange, &HttpExchange::finished, &owner,
                         [this](const HttpAnswer &answer) { answers << answer; });
        return exchange;
    }
    HttpAnswer wait()
    {
        if (!QTest::qWaitFor([this] { return !answers.isEmpty(); }, 10'000))
            qFatal("the exchange did not finish");
        return answers.takeFirst();
    }
};

} // namespace

class TestHttpExchange : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void readsBody()
    {
        Fixture f;
        f.server.answerWith(ScriptedHttpServer::answer(200, "hello"), Ending::KeepOpen);
        f.post();
        const HttpAnswer answer = f.wait();
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.body, "hello");
        QVERIFY(!answer.isTooLong && !answer.failure);
        QCOMPARE(f.server.requests().first().body(), "question");
    }

    void connectionCloseMayDelimitTheBody()
    {
        Fixture f;
        f.server.answerWith("HTTP/1.1 200 OK\r\n\r\nhello", Ending::Close);
        f.post();
        const HttpAnswer answer = f.wait();
        QCOMPARE(answer.body, "hello");
        QVERIFY(!answer.failure);
    }

    void doesNotWaitForBodyOfOtherStatuses_data()
    {
        QTest::addColumn<int>("status");
        for (const int status : {201, 202, 301, 307, 400, 403, 404, 500, 503, 599})
            QTest::addRow("%d", status) << status;
    }
    void doesNotWaitForBodyOfOtherStatuses()
    {
        QFETCH(int, status);
        Fixture f;
        // The announced body is never completed.
        f.server.answerWith("HTTP/1.1 " + QByteArray::number(status) +
                                " S\r\nContent-Length: 100000000\r\n\r\nx",
                            Ending::KeepOpen);
        f.post();
        const HttpAnswer answer = f.wait();
        QCOMPARE(answer.status, status);
        QVERIFY(answer.body.isEmpty() && !answer.isTooLong && !answer.failure);
        QTRY_VERIFY(f.server.requests().first().disconnected);
    }

    void doesNotAnswerAuthenticationChallenges_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("header");
        QTest::newRow("401") << 401 << QByteArray("WWW-Authenticate: Basic realm=\"x\"\r\n");
        QTest::newRow("407") << 407 << QByteArray("Proxy-Authenticate: Basic realm=\"x\"\r\n");
    }
    void doesNotAnswerAuthenticationChallenges()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, header);
        Fixture f;
        f.server.answerWith(ScriptedHttpServer::answer(status, "no", header), Ending::KeepOpen);
        f.post();
        const HttpAnswer answer = f.wait();
        QCOMPARE(answer.status, status);
        QVERIFY(!answer.failure);
        QCOMPARE(f.server.requests().size(), 1);
    }

    void doesNotFollowRedirects()
    {
        Fixture f;
        ScriptedHttpServer elsewhere;
        f.server.answerWith(ScriptedHttpServer::answer(
                                308, {}, "Location: " + elsewhere.baseUrl().toUtf8() + "\r\n"),
                            Ending::Close);
        f.post();
        QCOMPARE(f.wait().status, 308);
        QCOMPARE(elsewhere.connectionCount(), 0);
    }

    void neverResendsARequest_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("reset");
        const auto row = [](const char *name, const QByteArray &bytes) {
            QTest::addRow("%s, close", name) << bytes << false;
            QTest::addRow("%s, reset", name) << bytes << true;
        };
        row("before the answer", {});
        row("within the status line", "HTTP/1.");
        row("within the header", "HTTP/1.1 200 OK\r\nContent-Le");
        row("after the header", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n");
        row("within the body", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhe");
        row("within a chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhe");
        row("another protocol", "SSH-2.0-x\r\n\r\n");
    }
    void neverResendsARequest()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, reset);
        Fixture f;
        f.server.answerWith(bytes, reset ? Ending::Reset : Ending::Close);
        f.post();
        const HttpAnswer answer = f.wait();
        QVERIFY(answer.failure && !answer.failure->isEmpty());
        QVERIFY(answer.body.isEmpty());
        // A resent request would already have been received.
        f.server.answerWith(ScriptedHttpServer::answer(200, "late"), Ending::Close);
        f.post();
        QCOMPARE(f.wait().body, "late");
        QCOMPARE(f.server.requests().size(), 2);
    }

    void doesNotResendOnKeptAliveConnection()
    {
        Fixture f;
        f.server.answerWith(ScriptedHttpServer::answer(200, "one"), Ending::KeepOpen);
        f.post();
        QCOMPARE(f.wait().body, "one");
        f.server.answerWith({}, Ending::Close);
        f.post();
        QCOMPARE(f.wait().failure, lost);
        QCOMPARE(f.server.requests().size(), 2);
    }

    void oversizedBodyIsDropped_data()
    {
        QTest::addColumn<qsizetype>("size");
        QTest::addColumn<bool>("tooLong");
        QTest::newRow("at the limit") << qsizetype(100'000) << false;
        QTest::newRow("one more") << qsizetype(100'001) << true;
        QTest::newRow("ten megabytes") << qsizetype(10'000'000) << true;
    }
    void oversizedBodyIsDropped()
    {
        QFETCH(qsizetype, size);
        QFETCH(bool, tooLong);
        Fixture f;
        f.server.answerWith(ScriptedHttpServer::answer(200, QByteArray(size, 'x')),
                            Ending::KeepOpen);
        f.post({200, 100'000, 0ms});
        const HttpAnswer answer = f.wait();
        QCOMPARE(answer.isTooLong, tooLong);
        QCOMPARE(answer.body.size(), tooLong ? 0 : size);
        QVERIFY(!answer.failure);
    }

    void endlessBodyIsAborted()
    {
        Fixture f;
        f.server.answerWith("HTTP/1.1 200 OK\r\nContent-Length: 1000000000\r\n\r\n" +
                                QByteArray(10'000'000, 'x'),
                            Ending::KeepOpen);
        f.post({200, 100'000, 0ms});
        QVERIFY(f.wait().isTooLong);
        QTRY_VERIFY(f.server.requests().first().disconnected);
    }

    void bodyIsNotDecompressed()
    {
        Fixture f;
        const QByteArray packed = qCompress(QByteArray(100'000, ' '), 9).mid(4);
        f.server.answerWith(
            ScriptedHttpServer::answer(200, packed, "Content-Encoding: deflate\r\n"),
            Ending::KeepOpen);
        f.post();
        QCOMPARE(f.wait().body, packed);
        QCOMPARE(f.server.requests().first().header("Accept-Encoding"), "identity");
    }

    void inactivityTimesOut()
    {
        for (const QByteArray &begin :
             {QByteArray(), QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhe")}) {
            Fixture f;
            f.server.answerWith(begin, Ending::KeepOpen);
            f.post({200, 1000, 0ms}, 100ms);
            QCOMPARE(f.wait().failure, QStringLiteral("The request timed out."));
            QTRY_VERIFY(f.server.requests().first().disconnected);
        }
    }

    void slowResponseTimesOut()
    {
        Fixture f;
        f.server.answerWith("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", Ending::KeepOpen);
        f.post({200, 1000, 300ms}, 10s);
        QTimer trickle;
        QObject::connect(&trickle, &QTimer::timeout, &f.owner, [&f] {
            if (!f.server.requests().isEmpty())
                f.server.send(0, "x");
        });
        trickle.start(20ms);
        QCOMPARE(f.wait().failure, QStringLiteral("The request timed out."));
        trickle.stop();
        QTRY_VERIFY(f.server.requests().first().disconnected);
    }

    void nonHttpResponseHasNoStatus()
    {
        StatuslessNetwork network;
        QObject owner;
        auto *exchange = new HttpExchange(
            http::postOnce(network, http::request(QUrl(QStringLiteral("http://x/")), 1s), {}),
            {200, 1000, 0ms}, &owner);
        std::optional<HttpAnswer> got;
        connect(exchange, &HttpExchange::finished, &owner,
                [&got](const HttpAnswer &answer) { got = answer; });
        QTRY_VERIFY(got);
        QCOMPARE(got->status, 0);
        QVERIFY(!got->failure);
    }

    void refusedConnectionFails()
    {
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const QUrl url(QStringLiteral("http://127.0.0.1:%1/").arg(closed.serverPort()));
        closed.close();
        Fixture f;
        auto *exchange = new HttpExchange(http::postOnce(*f.network, http::request(url, 5s), {}),
                                          {200, 1000, 0ms}, &f.owner);
        connect(exchange, &HttpExchange::finished, &f.owner,
                [&f](const HttpAnswer &answer) { f.answers << answer; });
        QCOMPARE(f.wait().failure, QStringLiteral("Connection refused"));
    }

    void deletionAbortsTheTransferSilently()
    {
        Fixture f;
        QSignalSpy arrived(&f.server, &ScriptedHttpServer::requestArrived);
        HttpExchange *exchange = f.post();
        QVERIFY(arrived.wait());
        delete exchange;
        QTRY_VERIFY(f.server.requests().first().disconnected);
        QVERIFY(f.answers.isEmpty());
    }

    void deletingTheNetworkManagerFailsTheExchange()
    {
        Fixture f;
        f.post();
        f.network.reset();
        QCOMPARE(f.wait().failure, QStringLiteral("The network connection was shut down."));
    }

    void recognisesHeaderValues_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("good");
        QTest::newRow("empty") << QByteArray() << true;
        QTest::newRow("plain") << QByteArray("abc def") << true;
        QTest::newRow("beyond ASCII") << QByteArray("\xc3\xa4") << true;
        QTest::newRow("line feed") << QByteArray("a\nX: y") << false;
        QTest::newRow("carriage return") << QByteArray("a\r") << false;
        QTest::newRow("nul") << QByteArray("a\0b", 3) << false;
        QTest::newRow("delete") << QByteArray("\x7f") << false;
    }
    void recognisesHeaderValues()
    {
        QFETCH(QByteArray, value);
        QFETCH(bool, good);
        QCOMPARE(http::isHeaderValue(value), good);
    }
};

QUELLORA_TEST(QCoreApplication, TestHttpExchange)
#include "test_http_exchange.moc"
