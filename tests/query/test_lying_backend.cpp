#include "ProxyFixture.h"
#include "query/HttpQuery.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTimer>

using namespace quellora;
using namespace std::chrono_literals;
using Kind = QueryError::Kind;
using Ending = ScriptedHttpServer::Ending;

Q_DECLARE_METATYPE(quellora::ScriptedHttpServer::Ending)

namespace {

const QString timedOut = QStringLiteral("The request timed out.");

QByteArray inChunks(const QByteArray &body)
{
    QByteArray encoded;
    for (qsizetype at = 0; at < body.size(); at += 20) {
        const QByteArray part = body.mid(at, 20);
        encoded += QByteArray::number(part.size(), 16) + "\r\n" + part + "\r\n";
    }
    return encoded + "0\r\n\r\n";
}

} // namespace

/// Answers that break HTTP or the stream's rules: each ends with a typed error and a text, reaches
/// no other host and leaves the next question unharmed.
class TestLyingBackend : public ProxyFixture
{
    Q_OBJECT

private Q_SLOTS:
    void redirectReachesNobody_data();
    void redirectReachesNobody();
    void breakAtEachByte_data();
    void breakAtEachByte();
    void wrongLength_data();
    void wrongLength();
    void bytesAfterDoneAreNotRead();
    void endlessAnswerIsEnded();
    void packedAnswerIsNotDecompressed();
    void slowHeaderTimesOut();
    void deepNestingIsNotFollowed_data();
    void deepNestingIsNotFollowed();

    void cleanupTestCase() { qInfo("breaks tried: %lld", m_breaks); }

private:
    static QByteArray ok(const QByteArray &headers)
    {
        return "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n" + headers + "\r\n";
    }
    /// Asks once more, of a server that now tells the truth.
    bool nextQuestionWorks()
    {
        m_service =
            std::make_unique<ProxyQueryService>(*m_network, BackendEndpoints(m_server->baseUrl()));
        m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("fine") + doneLine,
                             Ending::Close);
        QueryRecorder recorder(start());
        return recorder.waitForOutcome() && recorder.outcome->has_value() &&
               recorder.events == QStringList{QStringLiteral("first"), QStringLiteral("fine"),
                                              QStringLiteral("finished")};
    }

    qsizetype m_breaks = 0;
};

void TestLyingBackend::redirectReachesNobody_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("location");
    for (const int status : {300, 301, 302, 303, 307, 308}) {
        for (const char *location :
             {"SAME/elsewhere", "SAME/api/proxy/query", "/api/proxy/query", "OTHER/api/proxy/query",
              "//OTHERHOST/x", "https://OTHERHOST/x", "file:///etc/passwd", "data:text/plain,x",
              "ftp://OTHERHOST/", "\\\\OTHERHOST\\x", ""})
            QTest::addRow("%d %s", status, location) << status << QByteArray(location);
    }
}

void TestLyingBackend::redirectReachesNobody()
{
    QFETCH(int, status);
    QFETCH(QByteArray, location);
    ScriptedHttpServer elsewhere;
    location.replace("SAME", m_server->baseUrl().toUtf8());
    location.replace("OTHERHOST", elsewhere.baseUrl().mid(7).toUtf8());
    location.replace("OTHER", elsewhere.baseUrl().toUtf8());
    m_server->answerWith(ScriptedHttpServer::answer(status, chunkLine("a") + doneLine,
                                                    "Location: " + location +
                                                        "\r\nRefresh: 0;url=" + location + "\r\n"),
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QueryError error = queryError(Kind::HttpError);
    error.status = status;
    QCOMPARE(recorder.outcome->error(), error);
    QVERIFY(recorder.waitForDeletion());
    QVERIFY(nextQuestionWorks());
    QCOMPARE(elsewhere.connectionCount(), 0);
    QCOMPARE(m_server->requests().size(), 2);
}

void TestLyingBackend::breakAtEachByte_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<Ending>("ending");
    const QByteArray body = chunkLine("Hel") + "\n" + chunkLine("lo") + "\n" + doneLine;
    const auto row = [](const char *name, const QByteArray &answer) {
        QTest::addRow("%s, closed", name) << answer << Ending::Close;
        QTest::addRow("%s, reset", name) << answer << Ending::Reset;
    };
    row("until the connection closes", ok({}) + body);
    row("with a length", ok("Content-Length: " + QByteArray::number(body.size()) + "\r\n") + body);
    row("in chunks", ok("Transfer-Encoding: chunked\r\n") + inChunks(body));
    row("too many requests", ScriptedHttpServer::answer(429, R"({"resetInSeconds":42})"));
}

void TestLyingBackend::breakAtEachByte()
{
    QFETCH(QByteArray, answer);
    QFETCH(Ending, ending);
    const QString whole = QStringLiteral("Hello");
    // Qt waits for the rest of a chunk's size although the connection is closed.
    m_service =
        std::make_unique<ProxyQueryService>(*m_network, BackendEndpoints(m_server->baseUrl()),
                                            ProxyQueryService::Timeouts{300ms, 300ms});
    for (qsizetype length = 0; length < answer.size(); ++length) {
        m_server->answerWith(answer.left(length), ending);
        QueryRecorder recorder(start());
        QVERIFY2(recorder.waitForOutcome(), answer.left(length));
        QStringList texts = recorder.events;
        texts.removeOne(QStringLiteral("first"));
        QCOMPARE(texts.takeLast(), QStringLiteral("finished"));
        QVERIFY2(whole.startsWith(texts.join(QString())), answer.left(length));
        if (recorder.outcome->has_value()) {
            // Not before the last event is complete.
            QVERIFY2(answer.left(length).contains(R"("type":"done"})"), answer.left(length));
            QCOMPARE(texts.join(QString()), whole);
        } else {
            const QueryError &error = recorder.outcome->error();
            switch (error.kind) {
            case Kind::NetworkError:
            case Kind::Transport:
                QVERIFY2(!error.message.isEmpty(), answer.left(length));
                break;
            default:
                QVERIFY2(error.kind == Kind::StreamEndedUnexpectedly, answer.left(length));
            }
        }
        // Sent once; nothing was repeated.
        QCOMPARE(m_server->requests().size(), length + 1);
    }
    QVERIFY(nextQuestionWorks());
    m_breaks += answer.size();
}

void TestLyingBackend::wrongLength_data()
{
    QTest::addColumn<QByteArray>("headers");
    QTest::addColumn<bool>("complete");
    const auto row = [](const char *name, const QByteArray &value, bool complete) {
        QTest::addRow("%s", name) << "Content-Length: " + value + "\r\n" << complete;
    };
    row("too long", "100000", true);
    row("far too long", "9223372036854775807", true);
    row("too short", "30", false);
    row("zero", "0", false);
    QTest::newRow("chunk larger than its bytes")
        << QByteArray("Transfer-Encoding: chunked\r\n") << true;
}

void TestLyingBackend::wrongLength()
{
    QFETCH(QByteArray, headers);
    QFETCH(bool, complete);
    const QByteArray size = headers.contains("chunked") ? "7ffffff\r\n" : "";
    m_server->answerWith(ok(headers) + size + chunkLine("a") + doneLine, Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->has_value(), complete);
    if (!complete)
        QCOMPARE(recorder.outcome->error(), queryError(Kind::StreamEndedUnexpectedly));
    // Also when the rest of the answer was still on the connection.
    QVERIFY(nextQuestionWorks());
}

void TestLyingBackend::bytesAfterDoneAreNotRead()
{
    m_server->answerWith(
        ScriptedHttpServer::streamHeader() + chunkLine("a") + doneLine + chunkLine("late") +
            "data: {\"type\":\"error\",\"message\":\"late\"}\n" + QByteArray(4'000'000, 'x'),
        Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    QCOMPARE(recorder.events, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                           QStringLiteral("finished")}));
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QVERIFY(nextQuestionWorks());
}

void TestLyingBackend::endlessAnswerIsEnded()
{
    constexpr qsizetype size = 1024 * 1024;
    const QByteArray line = chunkLine(QByteArray(size, 'x'));
    m_server->answerWith(ScriptedHttpServer::streamHeader() +
                             line.repeated(HttpQuery::maxAnswerBytes / size) + chunkLine("y"),
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    const QString text = QStringLiteral("The answer is longer than 8 MiB");
    QCOMPARE(recorder.outcome->error(), queryError(Kind::Transport, text));
    // What fits is kept.
    QCOMPARE(recorder.events.size(), 1 + HttpQuery::maxAnswerBytes / size + 1);
    QVERIFY(!recorder.events.contains(QStringLiteral("y")));
    QCOMPARE(m_log->lines, QStringList{QStringLiteral("[ProxyQueryService] ERROR: ") + text});
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QVERIFY(nextQuestionWorks());
}

void TestLyingBackend::packedAnswerIsNotDecompressed()
{
    const QByteArray packed = qCompress((chunkLine("packed") + doneLine).repeated(1000)).mid(4);
    m_server->answerWith(ScriptedHttpServer::answer(200, packed, "Content-Encoding: deflate\r\n"),
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error(), queryError(Kind::StreamEndedUnexpectedly));
    QVERIFY(nextQuestionWorks());
}

void TestLyingBackend::slowHeaderTimesOut()
{
    // Bytes of a header that never ends are no progress.
    m_service = std::make_unique<ProxyQueryService>(
        *m_network, BackendEndpoints(m_server->baseUrl()), ProxyQueryService::Timeouts{1s, 1s});
    m_server->answerWith("HTTP/1.1 200 OK\r\nX-Padding: ", Ending::KeepOpen);
    QueryRecorder recorder(start());
    QTimer trickle;
    connect(&trickle, &QTimer::timeout, this, [this] {
        if (!m_server->requests().isEmpty() && !m_server->requests().constFirst().disconnected)
            m_server->send(0, "x");
    });
    trickle.start(20ms);
    QVERIFY(recorder.waitForOutcome());
    trickle.stop();
    QCOMPARE(recorder.outcome->error(), queryError(Kind::NetworkError, timedOut));
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QVERIFY(nextQuestionWorks());
}

void TestLyingBackend::deepNestingIsNotFollowed_data()
{
    QTest::addColumn<QByteArray>("value");
    constexpr qsizetype depth = 100'000;
    QTest::newRow("open arrays") << QByteArray(depth, '[');
    QTest::newRow("arrays") << QByteArray(depth, '[') + QByteArray(depth, ']');
    QTest::newRow("objects") << QByteArray("{\"a\":").repeated(depth) + "1" +
                                    QByteArray(depth, '}');
    // These make the decoder look twice.
    QTest::newRow("number out of range")
        << QByteArray(depth, '[') + "123456789012345678901234567890" + QByteArray(depth, ']');
    QTest::newRow("lone surrogate")
        << QByteArray(depth, '[') + "\"\\ud800\"" + QByteArray(depth, ']');
    QTest::newRow("not UTF-8") << QByteArray(depth, '[') + "\"\xff\"" + QByteArray(depth, ']');
}

void TestLyingBackend::deepNestingIsNotFollowed()
{
    QFETCH(QByteArray, value);
    const QByteArray chunk = R"({"type":"chunk","text":"deep","x":)" + value + "}";
    const QByteArray done = R"({"type":"done","x":)" + value + "}";
    const QByteArray error = R"({"type":"error","message":)" + value + "}";
    QByteArray body;
    for (const QByteArray &line : {value, chunk, done, error})
        body += "data: " + line + "\n";
    m_server->answerWith(ScriptedHttpServer::streamHeader() + body + chunkLine("a") + doneLine,
                         Ending::Close);
    {
        QueryRecorder recorder(start());
        QVERIFY(recorder.waitForOutcome());
        QVERIFY(recorder.outcome->has_value());
        QCOMPARE(recorder.events.at(1), QStringLiteral("a"));
    }
    m_server->answerWith(
        ScriptedHttpServer::answer(429, R"({"resetInSeconds":1,"x":)" + value.left(60'000) + "}",
                                   "Connection: close\r\n"),
        Ending::Close);
    {
        QueryRecorder recorder(start());
        QVERIFY(recorder.waitForOutcome());
        QCOMPARE(recorder.outcome->error(), queryError(Kind::CapExceeded));
    }
    QVERIFY(nextQuestionWorks());
}

QUELLORA_TEST(QCoreApplication, TestLyingBackend)
#include "test_lying_backend.moc"
