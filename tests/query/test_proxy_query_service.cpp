#include "QueryRecorder.h"
#include "fakes/LogCapture.h"
#include "fakes/ScriptedHttpServer.h"
#include "query/StreamEventParser.h"

#include <QJsonDocument>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTimer>

using namespace quellora;
using namespace std::chrono_literals;
using Kind = QueryError::Kind;
using Ending = ScriptedHttpServer::Ending;

Q_DECLARE_METATYPE(quellora::QueryError)

namespace {

const QByteArray doneLine = "data: {\"type\":\"done\"}\n";

QByteArray chunkLine(const QByteArray &text)
{
    return R"(data: {"type":"chunk","text":")" + text + "\"}\n";
}

/// An answer that claims to be anything but HTTP.
class StatuslessReply : public QNetworkReply
{
public:
    explicit StatuslessReply(QObject *parent) : QNetworkReply(parent)
    {
        setFinished(true);
        QMetaObject::invokeMethod(this, &QNetworkReply::finished, Qt::QueuedConnection);
    }
    void abort() override {}

protected:
    qint64 readData(char *, qint64) override { return -1; }
};

class StatuslessNetwork : public QNetworkAccessManager
{
protected:
    QNetworkReply *createRequest(Operation, const QNetworkRequest &, QIODevice *) override
    {
        return new StatuslessReply(this);
    }
};

/// A port where nobody listens.
QString deadUrl()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort());
}

} // namespace

class TestProxyQueryService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void encodesBody_data();
    void encodesBody();
    void refusesImageThatIsNotBase64();
    void sendsTheRequestAsGiven();
    void sendsLargeBodiesWhole();
    void sendsNoCookies();
    void refusesTokenWithLineBreak();

    void deliversAnAnswer();
    void deliversSingleBytes();
    void handsEachChunkOnBeforeTheNextArrives();
    void doneBeforeAnyChunk();
    void nothingAfterDoneIsRead();
    void lastLineWithoutBreakCounts();
    void errorEvent_data();
    void errorEvent();
    void queriesDoNotMix();

    void refusal_data();
    void refusal();
    void endlessRefusalIsCutOff();
    void brokenRefusalIsATransportError();
    void otherStatus_data();
    void otherStatus();
    void bodyOfAnotherStatusIsNotRead();
    void redirectIsNotFollowed();

    void earlyCloseEndsUnexpectedly();
    void brokenStreamIsATransportError_data();
    void brokenStreamIsATransportError();
    void connectionRefused();
    void answerThatIsNotHttp_data();
    void answerThatIsNotHttp();
    void replyWithoutStatus();
    void silenceBeforeTheAnswerTimesOut();
    void silenceWithinTheAnswerTimesOut();
    void slowAnswerDoesNotTimeOut();
    void overlongLineFails();

    void neverEmitsBeforeReturning();
    void cancelClosesTheSocket();
    void cancelBeforeTheAnswer();
    void slotMayCancel();
    void slotMayDelete_data();
    void slotMayDelete();
    void slotMayRunAnEventLoop();
    void outlivesTheService();
    void endsWithTheNetworkManager();

    void telemetryRequest();
    void telemetryIgnoresTheStatus_data();
    void telemetryIgnoresTheStatus();
    void telemetryFailureIsLogged();
    void telemetryTimesOut();
    void telemetryRefusesTokenWithLineBreak();
    void telemetryAnswerIsBounded();

private:
    RunningQuery *start(const QString &prompt = QStringLiteral("Hi"))
    {
        return m_service->query({prompt, {}, {}, QStringLiteral("token-1")});
    }
    /// Starts a query and waits until its request is complete at the server.
    RunningQuery *startAndReach();
    /// A query whose answer has begun with one chunk, "a".
    RunningQuery *startStreaming(QueryRecorder *&recorder);

    std::unique_ptr<QNetworkAccessManager> m_network;
    std::unique_ptr<ScriptedHttpServer> m_server;
    std::unique_ptr<ProxyQueryService> m_service;
    std::unique_ptr<LogCapture> m_log;
    QList<std::shared_ptr<QueryRecorder>> m_recorders;
};

void TestProxyQueryService::init()
{
    // The network classes complain this way about being used wrongly.
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
    m_network = std::make_unique<QNetworkAccessManager>();
    m_server = std::make_unique<ScriptedHttpServer>();
    m_service =
        std::make_unique<ProxyQueryService>(*m_network, BackendEndpoints(m_server->baseUrl()));
    m_log = std::make_unique<LogCapture>();
}

void TestProxyQueryService::cleanup()
{
    m_recorders.clear();
    m_service.reset();
    m_network.reset();
    m_server.reset();
    m_log.reset();
}

RunningQuery *TestProxyQueryService::startAndReach()
{
    const qsizetype before = m_server->requests().size();
    RunningQuery *query = start();
    if (!QTest::qWaitFor([&] { return m_server->requests().size() > before; }, 10'000))
        qFatal("the request did not arrive");
    return query;
}

RunningQuery *TestProxyQueryService::startStreaming(QueryRecorder *&recorder)
{
    RunningQuery *query = startAndReach();
    m_recorders.append(std::make_shared<QueryRecorder>(query));
    recorder = m_recorders.last().get();
    m_server->send(0, ScriptedHttpServer::streamHeader() + chunkLine("a"));
    if (!QTest::qWaitFor([&] { return recorder->said.size() == 2; }, 10'000))
        qFatal("the first chunk did not arrive");
    return query;
}

void TestProxyQueryService::encodesBody_data()
{
    QTest::addColumn<QString>("prompt");
    QTest::addColumn<bool>("withImage");
    QTest::addColumn<bool>("withModel");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("prompt alone") << QStringLiteral("Hi") << false << false
                                  << QByteArray(R"({"prompt":"Hi"})");
    QTest::newRow("empty prompt") << QString() << false << false << QByteArray(R"({"prompt":""})");
    QTest::newRow("image") << QStringLiteral("Hi") << true << false
                           << QByteArray(R"({"prompt":"Hi","imageBase64":"/9j+AA=="})");
    QTest::newRow("model") << QStringLiteral("Hi") << false << true
                           << QByteArray(R"({"prompt":"Hi","model":"m\"1"})");
    QTest::newRow("all") << QStringLiteral("Hi") << true << true
                         << QByteArray(
                                R"({"prompt":"Hi","imageBase64":"/9j+AA==","model":"m\"1"})");
    QTest::newRow("escapes")
        << QStringLiteral("\"\\/\n\r\t\u0001\u001f\u007f \u2028 \u00e9 \U0001F600") << false
        << false
        << QByteArray("{\"prompt\":\"\\\"\\\\/\\n\\r\\t\\u0001\\u001f\x7f \xe2\x80\xa8 \xc3\xa9 "
                      "\xf0\x9f\x98\x80\"}");
}

void TestProxyQueryService::encodesBody()
{
    QFETCH(QString, prompt);
    QFETCH(bool, withImage);
    QFETCH(bool, withModel);
    QFETCH(QByteArray, body);
    QueryRequest request{prompt, {}, {}, {}};
    if (withImage)
        request.imageBase64 = QByteArray("/9j+AA==");
    if (withModel)
        request.model = QStringLiteral("m\"1");
    const QByteArray encoded = ProxyQueryService::encodeBody(request);
    QCOMPARE(encoded, body);
    QCOMPARE(QJsonDocument::fromJson(encoded)[QLatin1String("prompt")].toString(), prompt);
}

void TestProxyQueryService::refusesImageThatIsNotBase64()
{
    QueryRecorder recorder(m_service->query(
        {QStringLiteral("Hi"), QByteArray("\",\"model\":\"x"), {}, QStringLiteral("t")}));
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error(),
             queryError(Kind::NetworkError,
                        QStringLiteral("Could not encode request body: the image is not base64 "
                                       "text")));
    QVERIFY(recorder.waitForDeletion());
    QCOMPARE(m_server->connectionCount(), 0);
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyQueryService::sendsTheRequestAsGiven()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + doneLine, Ending::Close);
    QueryRecorder recorder(m_service->query({QStringLiteral("Wh\u00e4t?"), QByteArray("AAAA"),
                                             QStringLiteral("m1"), QStringLiteral("token-1")}));
    QVERIFY(recorder.waitForOutcome());
    const auto &request = m_server->requests().constFirst();
    QCOMPARE(request.startLine(), "POST /api/proxy/query HTTP/1.1");
    QList<QByteArray> ours = request.headerNames();
    ours.removeIf([](const QByteArray &name) {
        return name != "Content-Type" && name != "Authorization" && name != "X-App-Version";
    });
    QCOMPARE(ours, (QList<QByteArray>{"Content-Type", "Authorization", "X-App-Version"}));
    QCOMPARE(request.header("Content-Type"), "application/json");
    QCOMPARE(request.header("Authorization"), "Bearer token-1");
    QCOMPARE(request.header("X-App-Version"), "1.0.0");
    QCOMPARE(request.body(),
             "{\"prompt\":\"Wh\xc3\xa4t?\",\"imageBase64\":\"AAAA\",\"model\":\"m1\"}");
}

void TestProxyQueryService::sendsLargeBodiesWhole()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + doneLine, Ending::Close);
    QByteArray image(6'000'000, 'A');
    for (qsizetype i = 0; i < image.size(); i += 1000)
        image[i] = static_cast<char>('B' + i / 1000 % 20);
    const QueryRequest query{QStringLiteral("Hi"), image, {}, QStringLiteral("t")};
    QueryRecorder recorder(m_service->query(query));
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    QVERIFY(m_server->requests().constFirst().body() == ProxyQueryService::encodeBody(query));
}

void TestProxyQueryService::sendsNoCookies()
{
    QNetworkCookie known("session", "secret");
    known.setDomain(QStringLiteral("127.0.0.1"));
    known.setPath(QStringLiteral("/"));
    m_network->cookieJar()->insertCookie(known);
    m_server->answerWith("HTTP/1.1 200 OK\r\nSet-Cookie: a=b; Path=/\r\nConnection: close\r\n\r\n" +
                             doneLine,
                         Ending::Close);
    for (int i = 0; i < 2; ++i) {
        QueryRecorder recorder(start());
        QVERIFY(recorder.waitForOutcome());
        QVERIFY(!m_server->requests().constLast().headerNames().contains("Cookie"));
    }
    QCOMPARE(m_network->cookieJar()->cookiesForUrl(QUrl(m_server->baseUrl())).size(), 1);
}

void TestProxyQueryService::refusesTokenWithLineBreak()
{
    QueryRecorder recorder(
        m_service->query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t\r\nX-Evil: 1")}));
    QVERIFY(recorder.waitForOutcome());
    const QString text = QStringLiteral("The session token contains control characters");
    QCOMPARE(recorder.outcome->error(), queryError(Kind::NetworkError, text));
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ProxyQueryService] Network error: ") + text});
    QCOMPARE(m_server->connectionCount(), 0);
}

void TestProxyQueryService::deliversAnAnswer()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("Hel") + "\n" +
                             chunkLine("lo") +
                             "data: {\"type\":\"done\",\"tokensRemaining\":900,"
                             "\"tokensUsed\":100}\n\n",
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.said, (QStringList{QStringLiteral("first"), QStringLiteral("Hel"),
                                         QStringLiteral("lo"), QStringLiteral("finished")}));
    QVERIFY(recorder.outcome->has_value());
    QCOMPARE(recorder.outcome->value(), (DoneInfo{900, false, false, false, 100}));
    QVERIFY(recorder.waitForDeletion());
    // The transfer is cancelled although the server would go on.
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyQueryService::deliversSingleBytes()
{
    QueryRecorder recorder(startAndReach());
    const QByteArray answer =
        ScriptedHttpServer::streamHeader() + ": hello\r\n" +
        "data: {\"type\":\"chunk\",\"text\":\"\xe2\x80\xa8\xf0\x9f\x98\x80\"}\r\n\r\n" +
        "data: {\"type\":\"chunk\",\"text\":\"b\xff\"}\r" + doneLine;
    for (const char byte : answer) {
        m_server->send(0, QByteArray(1, byte));
        QCoreApplication::processEvents();
    }
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.said,
             (QStringList{QStringLiteral("first"), QStringLiteral("\u2028\U0001F600"),
                          QStringLiteral("b\ufffd"), QStringLiteral("finished")}));
}

void TestProxyQueryService::handsEachChunkOnBeforeTheNextArrives()
{
    QueryRecorder *recorder = nullptr;
    startStreaming(recorder);
    for (const char *text : {"b", "c", "d"}) {
        m_server->send(0, chunkLine(text));
        QTRY_COMPARE(recorder->said.last(), QLatin1String(text));
    }
    QVERIFY(!recorder->outcome);
    m_server->send(0, doneLine);
    QVERIFY(recorder->waitForOutcome());
}

void TestProxyQueryService::doneBeforeAnyChunk()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + doneLine, Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.said, QStringList{QStringLiteral("finished")});
    QCOMPARE(recorder.outcome->value(), DoneInfo());
}

void TestProxyQueryService::nothingAfterDoneIsRead()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a") + doneLine +
                             chunkLine("b") + "data: {\"type\":\"error\"}\n",
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForDeletion());
    QCOMPARE(recorder.said, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                         QStringLiteral("finished")}));
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyQueryService::lastLineWithoutBreakCounts()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a") + doneLine.trimmed(),
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
}

void TestProxyQueryService::errorEvent_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("message");
    QTest::newRow("message") << QByteArray(R"({"type":"error","message":"Busy"})")
                             << QStringLiteral("Busy");
    QTest::newRow("none") << QByteArray(R"({"type":"error"})") << QStringLiteral("Unknown error");
    QTest::newRow("no text") << QByteArray(R"({"type":"error","message":1})")
                             << QStringLiteral("Unknown error");
}

void TestProxyQueryService::errorEvent()
{
    QFETCH(QByteArray, payload);
    QFETCH(QString, message);
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a") + "data: " + payload +
                             "\n" + chunkLine("b"),
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error(), queryError(Kind::ServerMessage, message));
    QCOMPARE(recorder.said, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                         QStringLiteral("finished")}));
    QCOMPARE(
        m_log->lines,
        QStringList{QStringLiteral("[ProxyQueryService] Proxy sent an error event: ") + message});
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

void TestProxyQueryService::queriesDoNotMix()
{
    QueryRecorder first(startAndReach());
    QueryRecorder second(startAndReach());
    m_server->send(1, ScriptedHttpServer::streamHeader() + chunkLine("two"));
    m_server->send(0, ScriptedHttpServer::streamHeader() + chunkLine("one") + doneLine);
    m_server->send(1, doneLine);
    QVERIFY(first.waitForOutcome() && second.waitForOutcome());
    QCOMPARE(first.said.at(1), QStringLiteral("one"));
    QCOMPARE(second.said.at(1), QStringLiteral("two"));
}

void TestProxyQueryService::refusal_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QueryError>("error");
    QTest::addColumn<QString>("line");

    const auto limited = [](const char *name, const QByteArray &body, qint64 seconds) {
        QueryError error = queryError(Kind::RateLimited);
        error.resetInSeconds = seconds;
        QTest::newRow(name)
            << body << error
            << QStringLiteral(
                   "[ProxyQueryService] Proxy returned 429 (rate limited) — reset in %1s")
                   .arg(seconds);
    };
    const auto capped = [](const char *name, const QByteArray &body,
                           const std::optional<qint64> &remaining = {}) {
        QueryError error = queryError(Kind::CapExceeded);
        error.tokensRemaining = remaining;
        QTest::newRow(name) << body << error
                            << QStringLiteral(
                                   "[ProxyQueryService] Proxy returned 429 (cap exceeded)");
    };
    limited("seconds", R"({"resetInSeconds": 42})", 42);
    limited("zero seconds", R"({"resetInSeconds":0})", 0);
    limited("integral fraction", R"({"resetInSeconds":42.0,"tokensRemaining":7})", 42);
    capped("seconds as text", R"({"resetInSeconds": "42"})");
    capped("seconds as flag", R"({"resetInSeconds": true})");
    capped("fraction", R"({"resetInSeconds": 1.5})");
    capped("remaining", R"({"tokensRemaining": -3})", -3);
    capped("remaining as text", R"({"tokensRemaining": "3"})");
    capped("empty", {});
    capped("not JSON", "<html>429</html>");
    capped("array", R"([{"resetInSeconds": 42}])");
    capped("not UTF-8", "{\"resetInSeconds\":42,\"x\":\"\xff\"}");
}

void TestProxyQueryService::refusal()
{
    QFETCH(QByteArray, body);
    QFETCH(QueryError, error);
    QFETCH(QString, line);
    m_server->answerWith(ScriptedHttpServer::answer(429, body), Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.said, QStringList{QStringLiteral("finished")});
    QVERIFY(recorder.outcome->error() == error);
    QCOMPARE(m_log->lines, QStringList{line});
}

void TestProxyQueryService::endlessRefusalIsCutOff()
{
    m_server->answerWith("HTTP/1.1 429 Status\r\nContent-Length: 1000000000\r\n\r\n" +
                             QByteArray(200'000, ' '),
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->error() == queryError(Kind::CapExceeded));
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

void TestProxyQueryService::brokenRefusalIsATransportError()
{
    m_server->answerWith("HTTP/1.1 429 Status\r\nContent-Length: 100\r\n\r\n{\"reset",
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error().kind, Kind::Transport);
    QVERIFY(!recorder.outcome->error().message.isEmpty());
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyQueryService::otherStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("headers");
    for (const int status : {201, 204, 302, 304, 400, 403, 404, 500, 503})
        QTest::addRow("%d", status) << status << QByteArray();
    QTest::newRow("401") << 401 << QByteArray();
    QTest::newRow("401 with challenge")
        << 401 << QByteArray("WWW-Authenticate: Basic realm=\"x\"\r\n");
}

void TestProxyQueryService::otherStatus()
{
    QFETCH(int, status);
    QFETCH(QByteArray, headers);
    const QByteArray body = status == 204 || status == 304 ? QByteArray() : chunkLine("a");
    m_server->answerWith(ScriptedHttpServer::answer(status, body, headers), Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QueryError error = queryError(Kind::HttpError);
    error.status = status;
    QCOMPARE(recorder.outcome->error(), error);
    QCOMPARE(recorder.said, QStringList{QStringLiteral("finished")});
    QCOMPARE(m_log->lines,
             QStringList{
                 QStringLiteral("[ProxyQueryService] Proxy request failed: HTTP %1").arg(status)});
    QCOMPARE(m_server->requests().size(), 1);
}

void TestProxyQueryService::bodyOfAnotherStatusIsNotRead()
{
    // The announced body never comes; the status alone decides.
    m_server->answerWith("HTTP/1.1 500 Status\r\nContent-Length: 1000000\r\n\r\nx",
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error().status, 500);
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

void TestProxyQueryService::redirectIsNotFollowed()
{
    ScriptedHttpServer elsewhere;
    m_server->answerWith(
        ScriptedHttpServer::answer(307, {}, "Location: " + elsewhere.baseUrl().toUtf8() + "/\r\n"),
        Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error().kind, Kind::HttpError);
    QCOMPARE(recorder.outcome->error().status, 307);
    QVERIFY(recorder.waitForDeletion());
    QCOMPARE(elsewhere.connectionCount(), 0);
    QCOMPARE(m_server->requests().size(), 1);
}

void TestProxyQueryService::earlyCloseEndsUnexpectedly()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a") + chunkLine("b") +
                             "data: {\"type\":\"do",
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.said, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                         QStringLiteral("b"), QStringLiteral("finished")}));
    QCOMPARE(recorder.outcome->error(), queryError(Kind::StreamEndedUnexpectedly));
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyQueryService::brokenStreamIsATransportError_data()
{
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("shorter than announced")
        << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n") << chunkLine("a");
    const QByteArray line = chunkLine("a");
    QTest::newRow("unfinished chunk coding")
        << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
        << QByteArray::number(line.size(), 16).append("\r\n" + line + "\r\n");
}

void TestProxyQueryService::brokenStreamIsATransportError()
{
    QFETCH(QByteArray, header);
    QFETCH(QByteArray, body);
    m_server->answerWith(header + body, Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.said, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                         QStringLiteral("finished")}));
    QCOMPARE(recorder.outcome->error().kind, Kind::Transport);
    QVERIFY(!recorder.outcome->error().message.isEmpty());
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyQueryService::connectionRefused()
{
    ProxyQueryService service(*m_network, BackendEndpoints(deadUrl()));
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(recorder.waitForOutcome());
    const QueryError error = recorder.outcome->error();
    QCOMPARE(error.kind, Kind::NetworkError);
    QCOMPARE(error.message, QStringLiteral("Connection refused"));
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ProxyQueryService] Network error: Connection refused")});
}

void TestProxyQueryService::answerThatIsNotHttp_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("other protocol") << QByteArray("SSH-2.0-x\r\n\r\n");
    QTest::newRow("nothing") << QByteArray();
}

void TestProxyQueryService::answerThatIsNotHttp()
{
    QFETCH(QByteArray, bytes);
    m_server->answerWith(bytes, Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    const QueryError error = recorder.outcome->error();
    QCOMPARE(error,
             queryError(Kind::NetworkError,
                        QStringLiteral("The connection was closed before an answer arrived.")));
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ProxyQueryService] Network error: ") + error.message});
    // A query is never asked twice.
    QCOMPARE(m_server->requests().size(), 1);
}

void TestProxyQueryService::replyWithoutStatus()
{
    StatuslessNetwork network;
    ProxyQueryService service(network, BackendEndpoints(m_server->baseUrl()));
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error(),
             queryError(Kind::NetworkError, QStringLiteral("Response was not HTTP")));
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyQueryService::silenceBeforeTheAnswerTimesOut()
{
    ProxyQueryService service(*m_network, BackendEndpoints(m_server->baseUrl()), {150ms, 150ms});
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(recorder.waitForOutcome());
    const QString text = QStringLiteral("The request timed out.");
    QCOMPARE(recorder.outcome->error(), queryError(Kind::NetworkError, text));
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ProxyQueryService] Network error: ") + text});
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

void TestProxyQueryService::silenceWithinTheAnswerTimesOut()
{
    ProxyQueryService service(*m_network, BackendEndpoints(m_server->baseUrl()), {150ms, 150ms});
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a"), Ending::KeepOpen);
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.said.at(1), QStringLiteral("a"));
    QCOMPARE(recorder.outcome->error(),
             queryError(Kind::Transport, QStringLiteral("The request timed out.")));
}

void TestProxyQueryService::slowAnswerDoesNotTimeOut()
{
    // Longer altogether than the time-out, but never silent for that long.
    ProxyQueryService service(*m_network, BackendEndpoints(m_server->baseUrl()), {400ms, 400ms});
    m_server->answerWith(ScriptedHttpServer::streamHeader(), Ending::KeepOpen);
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QTimer timer;
    int sent = 0;
    connect(&timer, &QTimer::timeout, this, [&] {
        if (m_server->requests().isEmpty())
            return;
        m_server->send(0, ++sent < 12 ? chunkLine("x") : doneLine);
        if (sent == 12)
            timer.stop();
    });
    timer.start(100ms);
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    QCOMPARE(recorder.said.size(), 1 + 11 + 1);
}

void TestProxyQueryService::overlongLineFails()
{
    m_server->answerWith(
        ScriptedHttpServer::streamHeader() + chunkLine("a") +
            "data: " + QByteArray(static_cast<qsizetype>(StreamEventParser::maxLineBytes), 'x'),
        Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    const QString text = QStringLiteral("The answer contains a line longer than 16 MiB");
    QCOMPARE(recorder.said.at(1), QStringLiteral("a"));
    QCOMPARE(recorder.outcome->error(), queryError(Kind::Transport, text));
    QCOMPARE(m_log->lines, QStringList{QStringLiteral("[ProxyQueryService] ERROR: ") + text});
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

void TestProxyQueryService::neverEmitsBeforeReturning()
{
    // Connecting after the call would miss an emission made within it.
    ProxyQueryService service(*m_network, BackendEndpoints(QStringLiteral("nothing://x")));
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(!recorder.outcome);
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error().kind, Kind::NetworkError);
    QVERIFY(recorder.waitForDeletion());
}

void TestProxyQueryService::cancelClosesTheSocket()
{
    QueryRecorder *recorder = nullptr;
    RunningQuery *query = startStreaming(recorder);
    m_server->send(0, chunkLine("never seen"));
    query->cancel();
    query->cancel();
    QVERIFY(recorder->waitForDeletion());
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QCOMPARE(recorder->said, (QStringList{QStringLiteral("first"), QStringLiteral("a")}));
}

void TestProxyQueryService::cancelBeforeTheAnswer()
{
    QueryRecorder early(start());
    early.query->cancel();
    QVERIFY(early.waitForDeletion());
    QVERIFY(early.said.isEmpty());

    QueryRecorder rejected(
        m_service->query({QStringLiteral("Hi"), {}, {}, QStringLiteral("bad\n")}));
    rejected.query->cancel();
    QVERIFY(rejected.waitForDeletion());
    QVERIFY(rejected.said.isEmpty());
}

void TestProxyQueryService::slotMayCancel()
{
    QueryRecorder recorder(startAndReach());
    connect(recorder.query, &RunningQuery::chunk, recorder.query,
            [query = recorder.query.data()] { query->cancel(); });
    m_server->send(0,
                   ScriptedHttpServer::streamHeader() + chunkLine("a") + chunkLine("b") + doneLine);
    QVERIFY(recorder.waitForDeletion());
    QCOMPARE(recorder.said, (QStringList{QStringLiteral("first"), QStringLiteral("a")}));
}

void TestProxyQueryService::slotMayDelete_data()
{
    QTest::addColumn<QString>("when");
    QTest::addColumn<QStringList>("said");
    const QString first = QStringLiteral("first");
    const QString text = QStringLiteral("a");
    const QString end = QStringLiteral("finished");
    QTest::newRow("first byte") << first << QStringList{first};
    QTest::newRow("chunk") << text << QStringList{first, text};
    QTest::newRow("end") << end << QStringList{first, text, QStringLiteral("b"), end};
}

void TestProxyQueryService::slotMayDelete()
{
    QFETCH(QString, when);
    QFETCH(QStringList, said);
    QueryRecorder recorder(startAndReach());
    RunningQuery *query = recorder.query;
    const auto deleteAt = [&](const QString &moment) {
        if (moment == when)
            delete recorder.query.data();
    };
    connect(query, &RunningQuery::firstByte, this, [&] { deleteAt(QStringLiteral("first")); });
    connect(query, &RunningQuery::chunk, this, [&](const QString &text) { deleteAt(text); });
    connect(query, &RunningQuery::finished, this, [&] { deleteAt(QStringLiteral("finished")); });
    m_server->send(0,
                   ScriptedHttpServer::streamHeader() + chunkLine("a") + chunkLine("b") + doneLine);
    QVERIFY(recorder.waitForDeletion());
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QCOMPARE(recorder.said, said);
}

void TestProxyQueryService::slotMayRunAnEventLoop()
{
    QueryRecorder recorder(startAndReach());
    connect(recorder.query, &RunningQuery::firstByte, this, [&] {
        // Everything else arrives, and the connection ends, while the first slot still runs.
        m_server->send(0, chunkLine("b") + "data: {\"type\":\"error\",\"message\":\"m\"}\n");
        m_server->end(0, Ending::Close);
        QTRY_VERIFY(m_server->requests().constFirst().disconnected);
        QTest::qWait(50);
    });
    m_server->send(0, ScriptedHttpServer::streamHeader() + chunkLine("a"));
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.said, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                         QStringLiteral("b"), QStringLiteral("finished")}));
    QCOMPARE(recorder.outcome->error().message, QStringLiteral("m"));
    QVERIFY(recorder.waitForDeletion());
}

void TestProxyQueryService::outlivesTheService()
{
    QueryRecorder recorder(startAndReach());
    m_service.reset();
    m_server->send(0, ScriptedHttpServer::streamHeader() + chunkLine("a") + doneLine);
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
}

void TestProxyQueryService::endsWithTheNetworkManager()
{
    QueryRecorder *recorder = nullptr;
    startStreaming(recorder);
    m_network.reset();
    QVERIFY(recorder->waitForOutcome());
    QCOMPARE(recorder->outcome->error().kind, Kind::NetworkError);
    QVERIFY(recorder->waitForDeletion());
}

void TestProxyQueryService::telemetryRequest()
{
    m_server->answerWith(ScriptedHttpServer::answer(200, "{}"), Ending::KeepOpen);
    const QJsonObject record{{QStringLiteral("model_used"), QStringLiteral("unknown")},
                             {QStringLiteral("prompt_chars"), 5},
                             {QStringLiteral("has_image"), false},
                             {QStringLiteral("response_time_ms"), 12.5}};
    m_service->sendTelemetry(QStringLiteral("token-1"), record);
    QTRY_COMPARE(m_server->requests().size(), 1);
    const auto &request = m_server->requests().constFirst();
    QCOMPARE(request.startLine(), "POST /api/telemetry/query HTTP/1.1");
    QList<QByteArray> ours = request.headerNames();
    ours.removeIf([](const QByteArray &name) {
        return name != "Content-Type" && name != "Authorization" && name != "X-App-Version";
    });
    QCOMPARE(ours, (QList<QByteArray>{"Content-Type", "Authorization", "X-App-Version"}));
    QCOMPARE(request.header("Content-Type"), "application/json");
    QCOMPARE(request.header("Authorization"), "Bearer token-1");
    QCOMPARE(request.header("X-App-Version"), "1.0.0");
    QCOMPARE(QJsonDocument::fromJson(request.body()).object(), record);
}

void TestProxyQueryService::telemetryIgnoresTheStatus_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {200, 202, 302, 401, 404, 429, 500})
        QTest::addRow("%d", status) << status;
}

void TestProxyQueryService::telemetryIgnoresTheStatus()
{
    QFETCH(int, status);
    m_server->answerWith(ScriptedHttpServer::answer(status, "body"), Ending::KeepOpen);
    QSignalSpy finished(m_network.get(), &QNetworkAccessManager::finished);
    m_service->sendTelemetry(QStringLiteral("t"), {});
    QTRY_COMPARE(finished.size(), 1);
    QCoreApplication::processEvents();
    QCOMPARE(m_log->lines, QStringList());
    QCOMPARE(m_server->requests().size(), 1);
}

void TestProxyQueryService::telemetryFailureIsLogged()
{
    ProxyQueryService(*m_network, BackendEndpoints(deadUrl()))
        .sendTelemetry(QStringLiteral("t"), {});
    const QStringList expected{
        QStringLiteral("[OverlayWindowController] Telemetry send failed (non-fatal): "
                       "Connection refused")};
    QTRY_COMPARE(m_log->lines, expected);
}

void TestProxyQueryService::telemetryTimesOut()
{
    ProxyQueryService(*m_network, BackendEndpoints(m_server->baseUrl()), {10s, 100ms})
        .sendTelemetry(QStringLiteral("t"), {});
    const QStringList expected{
        QStringLiteral("[OverlayWindowController] Telemetry send failed (non-fatal): "
                       "The request timed out.")};
    QTRY_COMPARE(m_log->lines, expected);
}

void TestProxyQueryService::telemetryRefusesTokenWithLineBreak()
{
    m_service->sendTelemetry(QStringLiteral("t\nX: y"), {});
    QCOMPARE(m_log->lines, QStringList{QStringLiteral(
                               "[OverlayWindowController] Telemetry send failed (non-fatal): "
                               "The session token contains control characters")});
    QCOMPARE(m_server->connectionCount(), 0);
}

void TestProxyQueryService::telemetryAnswerIsBounded()
{
    m_server->answerWith("HTTP/1.1 200 OK\r\n\r\n" + QByteArray(300'000, 'x'), Ending::KeepOpen);
    m_service->sendTelemetry(QStringLiteral("t"), {});
    QTRY_COMPARE(m_server->requests().size(), 1);
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QCOMPARE(m_log->lines, QStringList());
}

QTEST_GUILESS_MAIN(TestProxyQueryService)
#include "test_proxy_query_service.moc"
