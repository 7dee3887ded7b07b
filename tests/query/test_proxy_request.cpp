#include "ProxyFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QSignalSpy>

using namespace quellora;
using namespace std::chrono_literals;
using Kind = QueryError::Kind;
using Ending = ScriptedHttpServer::Ending;

class TestProxyRequest : public ProxyFixture
{
    Q_OBJECT

private Q_SLOTS:
    void encodesBody_data();
    void encodesBody();
    void rejectsImageThatIsNotBase64();
    void sendsRequest();
    void sendsLargeBody();
    void sendsNoCookies();
    void rejectsTokenWithLineBreak();
    void telemetryRequest();
    void telemetryIgnoresStatus_data();
    void telemetryIgnoresStatus();
    void telemetryUsesSeparateConnection();
    void telemetryFailureIsLogged();
    void telemetryTimesOut();
    void telemetryRejectsTokenWithLineBreak();
    void oversizedTelemetryResponseIsAborted();
};

void TestProxyRequest::encodesBody_data()
{
    QTest::addColumn<QString>("prompt");
    QTest::addColumn<bool>("withImage");
    QTest::addColumn<bool>("withModel");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("prompt only") << QStringLiteral("Hi") << false << false
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

void TestProxyRequest::encodesBody()
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

void TestProxyRequest::rejectsImageThatIsNotBase64()
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

void TestProxyRequest::sendsRequest()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + doneLine, Ending::Close);
    QueryRecorder recorder(m_service->query({QStringLiteral("Wh\u00e4t?"), QByteArray("AAAA"),
                                             QStringLiteral("m1"), QStringLiteral("token-1")}));
    QVERIFY(recorder.waitForOutcome());
    const auto &request = m_server->requests().constFirst();
    QCOMPARE(request.startLine(), "POST /api/proxy/query HTTP/1.1");
    QList<QByteArray> names = request.headerNames();
    names.removeIf([](const QByteArray &name) {
        return name != "Content-Type" && name != "Authorization" && name != "X-App-Version";
    });
    QCOMPARE(names, (QList<QByteArray>{"Content-Type", "Authorization", "X-App-Version"}));
    QCOMPARE(request.header("Content-Type"), "application/json");
    QCOMPARE(request.header("Authorization"), "Bearer token-1");
    QCOMPARE(request.header("X-App-Version"), "1.0.0");
    QCOMPARE(request.body(),
             "{\"prompt\":\"Wh\xc3\xa4t?\",\"imageBase64\":\"AAAA\",\"model\":\"m1\"}");
}

void TestProxyRequest::sendsLargeBody()
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

void TestProxyRequest::sendsNoCookies()
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

void TestProxyRequest::rejectsTokenWithLineBreak()
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

void TestProxyRequest::telemetryRequest()
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
    QList<QByteArray> names = request.headerNames();
    names.removeIf([](const QByteArray &name) {
        return name != "Content-Type" && name != "Authorization" && name != "X-App-Version";
    });
    QCOMPARE(names, (QList<QByteArray>{"Content-Type", "Authorization", "X-App-Version"}));
    QCOMPARE(request.header("Content-Type"), "application/json");
    QCOMPARE(request.header("Authorization"), "Bearer token-1");
    QCOMPARE(request.header("X-App-Version"), "1.0.0");
    QCOMPARE(QJsonDocument::fromJson(request.body()).object(), record);
}

void TestProxyRequest::telemetryIgnoresStatus_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {200, 202, 302, 401, 404, 429, 500})
        QTest::addRow("%d", status) << status;
}

void TestProxyRequest::telemetryIgnoresStatus()
{
    QFETCH(int, status);
    m_server->answerWith(ScriptedHttpServer::answer(status, "body"), Ending::KeepOpen);
    m_service->sendTelemetry(QStringLiteral("t"), {});
    QTRY_VERIFY(m_network->findChildren<QNetworkAccessManager *>().isEmpty());
    QCOMPARE(m_log->lines, QStringList());
    QCOMPARE(m_server->requests().size(), 1);
}

void TestProxyRequest::telemetryUsesSeparateConnection()
{
    m_server->answerWith(ScriptedHttpServer::answer(200, "body"), Ending::KeepOpen);
    m_service->sendTelemetry(QStringLiteral("t"), {});
    QTRY_VERIFY(m_network->findChildren<QNetworkAccessManager *>().isEmpty());
    m_service->sendTelemetry(QStringLiteral("t"), {});
    QTRY_COMPARE(m_server->requests().size(), 2);
    QCOMPARE(m_server->connectionCount(), 2);
}

void TestProxyRequest::telemetryFailureIsLogged()
{
    ProxyQueryService(*m_network, BackendEndpoints(unreachableUrl()))
        .sendTelemetry(QStringLiteral("t"), {});
    const QStringList expected{
        QStringLiteral("[OverlayWindowController] Telemetry send failed (non-fatal): "
                       "Connection refused")};
    QTRY_COMPARE(m_log->lines, expected);
}

void TestProxyRequest::telemetryTimesOut()
{
    ProxyQueryService(*m_network, BackendEndpoints(m_server->baseUrl()), {10s, 100ms})
        .sendTelemetry(QStringLiteral("t"), {});
    const QStringList expected{
        QStringLiteral("[OverlayWindowController] Telemetry send failed (non-fatal): "
                       "The request timed out.")};
    QTRY_COMPARE(m_log->lines, expected);
}

void TestProxyRequest::telemetryRejectsTokenWithLineBreak()
{
    m_service->sendTelemetry(QStringLiteral("t\nX: y"), {});
    QCOMPARE(m_log->lines, QStringList{QStringLiteral(
                               "[OverlayWindowController] Telemetry send failed (non-fatal): "
                               "The session token contains control characters")});
    QCOMPARE(m_server->connectionCount(), 0);
}

void TestProxyRequest::oversizedTelemetryResponseIsAborted()
{
    m_server->answerWith("HTTP/1.1 200 OK\r\n\r\n" + QByteArray(300'000, 'x'), Ending::KeepOpen);
    m_service->sendTelemetry(QStringLiteral("t"), {});
    QTRY_COMPARE(m_server->requests().size(), 1);
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QCOMPARE(m_log->lines, QStringList());
}

QUELLORA_TEST(QCoreApplication, TestProxyRequest)
#include "test_proxy_request.moc"
