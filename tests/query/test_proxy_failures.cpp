#include "ProxyFixture.h"
#include "fakes/StatuslessNetwork.h"
#include "query/StreamEventParser.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTimer>

using namespace quellora;
using namespace std::chrono_literals;
using Kind = QueryError::Kind;
using Ending = ScriptedHttpServer::Ending;

Q_DECLARE_METATYPE(quellora::QueryError)

class TestProxyFailures : public ProxyFixture
{
    Q_OBJECT

private Q_SLOTS:
    void tooManyRequests_data();
    void tooManyRequests();
    void oversizedRejectionIsAborted();
    void truncatedRejectionIsTransportError();
    void unexpectedStatus_data();
    void unexpectedStatus();
    void bodyOfUnexpectedStatusIsNotRead();
    void redirectIsNotFollowed();
    void closeBeforeDoneIsUnexpectedEnd();
    void truncatedStreamIsTransportError_data();
    void truncatedStreamIsTransportError();
    void connectionRefused();
    void nonHttpResponse_data();
    void nonHttpResponse();
    void replyWithoutStatus();
    void timesOutBeforeResponse();
    void timesOutDuringResponse();
    void slowResponseDoesNotTimeOut();
    void overlongLineFails();
};

void TestProxyFailures::tooManyRequests_data()
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
    capped("seconds as string", R"({"resetInSeconds": "42"})");
    capped("seconds as boolean", R"({"resetInSeconds": true})");
    capped("fraction", R"({"resetInSeconds": 1.5})");
    capped("remaining", R"({"tokensRemaining": -3})", -3);
    capped("remaining as string", R"({"tokensRemaining": "3"})");
    capped("empty", {});
    capped("not JSON", "<html>429</html>");
    capped("array", R"([{"resetInSeconds": 42}])");
    capped("not UTF-8", "{\"resetInSeconds\":42,\"x\":\"\xff\"}");
}

void TestProxyFailures::tooManyRequests()
{
    QFETCH(QByteArray, body);
    QFETCH(QueryError, error);
    QFETCH(QString, line);
    m_server->answerWith(ScriptedHttpServer::answer(429, body), Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.events, QStringList{QStringLiteral("finished")});
    QVERIFY(recorder.outcome->error() == error);
    QCOMPARE(m_log->lines, QStringList{line});
}

void TestProxyFailures::oversizedRejectionIsAborted()
{
    m_server->answerWith("HTTP/1.1 429 Status\r\nContent-Length: 1000000000\r\n\r\n" +
                             QByteArray(200'000, ' '),
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->error() == queryError(Kind::CapExceeded));
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

void TestProxyFailures::truncatedRejectionIsTransportError()
{
    m_server->answerWith("HTTP/1.1 429 Status\r\nContent-Length: 100\r\n\r\n{\"reset",
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error().kind, Kind::Transport);
    QVERIFY(!recorder.outcome->error().message.isEmpty());
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyFailures::unexpectedStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("headers");
    for (const int status : {201, 204, 302, 304, 400, 403, 404, 500, 503})
        QTest::addRow("%d", status) << status << QByteArray();
    QTest::newRow("401") << 401 << QByteArray();
    QTest::newRow("401 with challenge")
        << 401 << QByteArray("WWW-Authenticate: Basic realm=\"x\"\r\n");
}

void TestProxyFailures::unexpectedStatus()
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
    QCOMPARE(recorder.events, QStringList{QStringLiteral("finished")});
    QCOMPARE(m_log->lines,
             QStringList{
                 QStringLiteral("[ProxyQueryService] Proxy request failed: HTTP %1").arg(status)});
    QCOMPARE(m_server->requests().size(), 1);
}

void TestProxyFailures::bodyOfUnexpectedStatusIsNotRead()
{
    // The declared body never arrives; the status alone is sufficient.
    m_server->answerWith("HTTP/1.1 500 Status\r\nContent-Length: 1000000\r\n\r\nx",
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error().status, 500);
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

void TestProxyFailures::redirectIsNotFollowed()
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

void TestProxyFailures::closeBeforeDoneIsUnexpectedEnd()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a") + chunkLine("b") +
                             "data: {\"type\":\"do",
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.events, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                           QStringLiteral("b"), QStringLiteral("finished")}));
    QCOMPARE(recorder.outcome->error(), queryError(Kind::StreamEndedUnexpectedly));
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyFailures::truncatedStreamIsTransportError_data()
{
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("shorter than Content-Length")
        << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n") << chunkLine("a");
    const QByteArray line = chunkLine("a");
    QTest::newRow("incomplete chunked encoding")
        << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
        << QByteArray::number(line.size(), 16).append("\r\n" + line + "\r\n");
}

void TestProxyFailures::truncatedStreamIsTransportError()
{
    QFETCH(QByteArray, header);
    QFETCH(QByteArray, body);
    m_server->answerWith(header + body, Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.events, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                           QStringLiteral("finished")}));
    QCOMPARE(recorder.outcome->error().kind, Kind::Transport);
    QVERIFY(!recorder.outcome->error().message.isEmpty());
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyFailures::connectionRefused()
{
    ProxyQueryService service(*m_network, BackendEndpoints(unreachableUrl()));
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(recorder.waitForOutcome());
    const QueryError error = recorder.outcome->error();
    QCOMPARE(error.kind, Kind::NetworkError);
    QCOMPARE(error.message, QStringLiteral("Connection refused"));
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ProxyQueryService] Network error: Connection refused")});
}

void TestProxyFailures::nonHttpResponse_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("other protocol") << QByteArray("SSH-2.0-x\r\n\r\n");
    QTest::newRow("empty") << QByteArray();
}

void TestProxyFailures::nonHttpResponse()
{
    QFETCH(QByteArray, bytes);
    m_server->answerWith(bytes, Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    const QueryError error = recorder.outcome->error();
    QCOMPARE(error,
             queryError(Kind::NetworkError, QStringLiteral("The network connection was lost.")));
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ProxyQueryService] Network error: ") + error.message});
    // A query is never sent twice.
    QCOMPARE(m_server->requests().size(), 1);
}

void TestProxyFailures::replyWithoutStatus()
{
    StatuslessNetwork network;
    ProxyQueryService service(network, BackendEndpoints(m_server->baseUrl()));
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error(),
             queryError(Kind::NetworkError, QStringLiteral("Response was not HTTP")));
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyFailures::timesOutBeforeResponse()
{
    ProxyQueryService service(*m_network, BackendEndpoints(m_server->baseUrl()), {1s, 1s});
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(recorder.waitForOutcome());
    const QString text = QStringLiteral("The request timed out.");
    QCOMPARE(recorder.outcome->error(), queryError(Kind::NetworkError, text));
    QCOMPARE(m_log->lines,
             QStringList{QStringLiteral("[ProxyQueryService] Network error: ") + text});
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

void TestProxyFailures::timesOutDuringResponse()
{
    ProxyQueryService service(*m_network, BackendEndpoints(m_server->baseUrl()), {1s, 1s});
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a"), Ending::KeepOpen);
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.events.at(1), QStringLiteral("a"));
    QCOMPARE(recorder.outcome->error(),
             queryError(Kind::Transport, QStringLiteral("The request timed out.")));
}

void TestProxyFailures::slowResponseDoesNotTimeOut()
{
    // The response takes longer than the timeout, but is never idle for that long.
    ProxyQueryService service(*m_network, BackendEndpoints(m_server->baseUrl()), {2s, 2s});
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
    timer.start(250ms);
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    QCOMPARE(recorder.events.size(), 1 + 11 + 1);
}

void TestProxyFailures::overlongLineFails()
{
    m_server->answerWith(
        ScriptedHttpServer::streamHeader() + chunkLine("a") +
            "data: " + QByteArray(static_cast<qsizetype>(StreamEventParser::maxLineBytes), 'x'),
        Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    const QString text = QStringLiteral("The answer contains a line longer than 16 MiB");
    QCOMPARE(recorder.events.at(1), QStringLiteral("a"));
    QCOMPARE(recorder.outcome->error(), queryError(Kind::Transport, text));
    QCOMPARE(m_log->lines, QStringList{QStringLiteral("[ProxyQueryService] ERROR: ") + text});
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

QUELLORA_TEST(QCoreApplication, TestProxyFailures)
#include "test_proxy_failures.moc"
