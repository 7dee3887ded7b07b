#include "ProxyFixture.h"
#include "query/HttpQuery.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <algorithm>
#include <functional>

using namespace quellora;
using Kind = QueryError::Kind;
using Ending = ScriptedHttpServer::Ending;

class TestProxyAnswer : public ProxyFixture
{
    Q_OBJECT

private Q_SLOTS:
    void deliversAnAnswer();
    void deliversSingleBytes();
    void handsEachChunkOnBeforeTheNextArrives();
    void doneBeforeAnyChunk();
    void nothingAfterDoneIsRead();
    void lastLineWithoutBreakCounts();
    void errorEvent_data();
    void errorEvent();
    void queriesDoNotMix();
    void neverEmitsBeforeReturning();
    void cancelClosesTheSocket();
    void cancelBeforeTheAnswer();
    void slotMayCancel();
    void slotMayDelete_data();
    void slotMayDelete();
    void slotMayRunAnEventLoop();
    void outlivesTheService();
    void endsWithTheNetworkManager();
    void floodOfTinyChunksLeavesTheThreadFree();
    void floodLetsOthersWorkMeanwhile();
    void floodThatIsCancelledStops();
    void oneHugeChunkIsWhole();
};

void TestProxyAnswer::deliversAnAnswer()
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

void TestProxyAnswer::deliversSingleBytes()
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

void TestProxyAnswer::handsEachChunkOnBeforeTheNextArrives()
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

void TestProxyAnswer::doneBeforeAnyChunk()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + doneLine, Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.said, QStringList{QStringLiteral("finished")});
    QCOMPARE(recorder.outcome->value(), DoneInfo());
}

void TestProxyAnswer::nothingAfterDoneIsRead()
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

void TestProxyAnswer::lastLineWithoutBreakCounts()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a") + doneLine.trimmed(),
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
}

void TestProxyAnswer::errorEvent_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("message");
    QTest::newRow("message") << QByteArray(R"({"type":"error","message":"Busy"})")
                             << QStringLiteral("Busy");
    QTest::newRow("none") << QByteArray(R"({"type":"error"})") << QStringLiteral("Unknown error");
    QTest::newRow("no text") << QByteArray(R"({"type":"error","message":1})")
                             << QStringLiteral("Unknown error");
}

void TestProxyAnswer::errorEvent()
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

void TestProxyAnswer::queriesDoNotMix()
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

void TestProxyAnswer::neverEmitsBeforeReturning()
{
    // Connecting after the call would miss an emission made within it.
    ProxyQueryService service(*m_network, BackendEndpoints(QStringLiteral("nothing://x")));
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(!recorder.outcome);
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error().kind, Kind::NetworkError);
    QVERIFY(recorder.waitForDeletion());
}

void TestProxyAnswer::cancelClosesTheSocket()
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

void TestProxyAnswer::cancelBeforeTheAnswer()
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

void TestProxyAnswer::slotMayCancel()
{
    QueryRecorder recorder(startAndReach());
    connect(recorder.query, &RunningQuery::chunk, recorder.query,
            [query = recorder.query.data()] { query->cancel(); });
    m_server->send(0,
                   ScriptedHttpServer::streamHeader() + chunkLine("a") + chunkLine("b") + doneLine);
    QVERIFY(recorder.waitForDeletion());
    QCOMPARE(recorder.said, (QStringList{QStringLiteral("first"), QStringLiteral("a")}));
}

void TestProxyAnswer::slotMayDelete_data()
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

void TestProxyAnswer::slotMayDelete()
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

void TestProxyAnswer::slotMayRunAnEventLoop()
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

void TestProxyAnswer::floodOfTinyChunksLeavesTheThreadFree()
{
    QByteArray flood = ScriptedHttpServer::streamHeader();
    QString expected;
    for (int i = 0; i < 100'000; ++i) {
        const QByteArray text = QByteArray::number(i).right(1 + i % 4);
        flood += chunkLine(text);
        expected += QLatin1StringView(text);
    }
    m_server->answerWith(flood + doneLine, Ending::Close);
    RunningQuery *query = start();
    QueryRecorder recorder(query);
    // Somebody else on the same thread: no turn of the event loop may hand on more than its slice.
    qsizetype inTurn = 0;
    qsizetype most = 0;
    QObject others;
    QString answer;
    connect(query, &RunningQuery::chunk, this, [&](const QString &text) {
        answer += text;
        most = std::max(most, ++inTurn);
        if (inTurn == 1)
            QMetaObject::invokeMethod(
                &others, [&inTurn] { inTurn = 0; }, Qt::QueuedConnection);
    });
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    QCOMPARE(recorder.said.size(), 100'002);
    QVERIFY(answer == expected);
    QVERIFY2(most <= 2 * HttpQuery::maxEventsPerTurn, qPrintable(QString::number(most)));
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyAnswer::floodLetsOthersWorkMeanwhile()
{
    constexpr int events = 100 * HttpQuery::maxEventsPerTurn;
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a").repeated(events) +
                             doneLine,
                         Ending::Close);
    RunningQuery *query = start();
    QueryRecorder recorder(query);
    // As the page engine does it: each piece of work posts the next one.
    bool isFlood = false;
    int worked = 0;
    QObject others;
    std::function<void()> work = [&] {
        worked += isFlood ? 1 : 0;
        if (!recorder.outcome)
            QMetaObject::invokeMethod(&others, work, Qt::QueuedConnection);
    };
    connect(query, &RunningQuery::firstByte, this, [&] { isFlood = true; });
    work();
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    // Far more than one piece for each slice of the flood.
    QVERIFY2(worked > 5 * 100, qPrintable(QString::number(worked)));
}

void TestProxyAnswer::floodThatIsCancelledStops()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a").repeated(2000),
                         Ending::KeepOpen);
    RunningQuery *query = start();
    int chunks = 0;
    connect(query, &RunningQuery::chunk, this, [&] { ++chunks; });
    // With its slice delivered and the rest waiting.
    QVERIFY(QTest::qWaitFor([&] { return chunks > 0; }, 10'000));
    const int before = chunks;
    const QPointer<RunningQuery> watched(query);
    query->cancel();
    QVERIFY(QTest::qWaitFor([&] { return watched.isNull(); }, 10'000));
    QCOMPARE(chunks, before);
}

void TestProxyAnswer::oneHugeChunkIsWhole()
{
    const QByteArray text = QByteArray("0123456789abcdef").repeated(5 * 1024 * 1024 / 16);
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine(text) + doneLine,
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    QCOMPARE(recorder.said.size(), 3);
    QVERIFY(recorder.said[1] == QLatin1StringView(text));
}

void TestProxyAnswer::outlivesTheService()
{
    QueryRecorder recorder(startAndReach());
    m_service.reset();
    m_server->send(0, ScriptedHttpServer::streamHeader() + chunkLine("a") + doneLine);
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
}

void TestProxyAnswer::endsWithTheNetworkManager()
{
    QueryRecorder *recorder = nullptr;
    startStreaming(recorder);
    m_network.reset();
    QVERIFY(recorder->waitForOutcome());
    QCOMPARE(recorder->outcome->error().kind, Kind::NetworkError);
    QVERIFY(recorder->waitForDeletion());
}

QUELLORA_TEST(QCoreApplication, TestProxyAnswer)
#include "test_proxy_answer.moc"
