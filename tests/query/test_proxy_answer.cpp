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
    void deliversAnswer();
    void acceptsByteWiseInput();
    void deliversChunksImmediately();
    void doneWithoutChunks();
    void ignoresDataAfterDone();
    void acceptsLastLineWithoutLineBreak();
    void errorEvent_data();
    void errorEvent();
    void concurrentQueriesDoNotMix();
    void neverEmitsBeforeReturning();
    void cancelClosesSocket();
    void cancelBeforeResponse();
    void slotMayCancel();
    void slotMayDelete_data();
    void slotMayDelete();
    void slotMayRunNestedEventLoop();
    void queryOutlivesService();
    void destroyingNetworkManagerFailsQuery();
    void chunkFloodIsDeliveredInBatches();
    void chunkFloodDoesNotStarveEventLoop();
    void cancelStopsChunkFlood();
    void hugeChunkIsDeliveredWhole();
};

void TestProxyAnswer::deliversAnswer()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("Hel") + "\n" +
                             chunkLine("lo") +
                             "data: {\"type\":\"done\",\"tokensRemaining\":900,"
                             "\"tokensUsed\":100}\n\n",
                         Ending::KeepOpen);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.events, (QStringList{QStringLiteral("first"), QStringLiteral("Hel"),
                                           QStringLiteral("lo"), QStringLiteral("finished")}));
    QVERIFY(recorder.outcome->has_value());
    QCOMPARE(recorder.outcome->value(), (DoneInfo{900, false, false, false, 100}));
    QVERIFY(recorder.waitForDeletion());
    // The client closes the connection although the server keeps it open.
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyAnswer::acceptsByteWiseInput()
{
    QueryRecorder recorder(startAndWaitForRequest());
    const QByteArray answer =
        ScriptedHttpServer::streamHeader() + ": hello\r\n" +
        "data: {\"type\":\"chunk\",\"text\":\"\xe2\x80\xa8\xf0\x9f\x98\x80\"}\r\n\r\n" +
        "data: {\"type\":\"chunk\",\"text\":\"b\xff\"}\r" + doneLine;
    for (const char byte : answer) {
        m_server->send(0, QByteArray(1, byte));
        QCoreApplication::processEvents();
    }
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.events,
             (QStringList{QStringLiteral("first"), QStringLiteral("\u2028\U0001F600"),
                          QStringLiteral("b\ufffd"), QStringLiteral("finished")}));
}

void TestProxyAnswer::deliversChunksImmediately()
{
    QueryRecorder *recorder = nullptr;
    startStreaming(recorder);
    for (const char *text : {"b", "c", "d"}) {
        m_server->send(0, chunkLine(text));
        QTRY_COMPARE(recorder->events.last(), QLatin1String(text));
    }
    QVERIFY(!recorder->outcome);
    m_server->send(0, doneLine);
    QVERIFY(recorder->waitForOutcome());
}

void TestProxyAnswer::doneWithoutChunks()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + doneLine, Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.events, QStringList{QStringLiteral("finished")});
    QCOMPARE(recorder.outcome->value(), DoneInfo());
}

void TestProxyAnswer::ignoresDataAfterDone()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a") + doneLine +
                             chunkLine("b") + "data: {\"type\":\"error\"}\n",
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForDeletion());
    QCOMPARE(recorder.events, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                           QStringLiteral("finished")}));
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyAnswer::acceptsLastLineWithoutLineBreak()
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
    QTest::newRow("missing") << QByteArray(R"({"type":"error"})")
                             << QStringLiteral("Unknown error");
    QTest::newRow("not a string") << QByteArray(R"({"type":"error","message":1})")
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
    QCOMPARE(recorder.events, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                           QStringLiteral("finished")}));
    QCOMPARE(
        m_log->lines,
        QStringList{QStringLiteral("[ProxyQueryService] Proxy sent an error event: ") + message});
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
}

void TestProxyAnswer::concurrentQueriesDoNotMix()
{
    QueryRecorder first(startAndWaitForRequest());
    QueryRecorder second(startAndWaitForRequest());
    m_server->send(1, ScriptedHttpServer::streamHeader() + chunkLine("two"));
    m_server->send(0, ScriptedHttpServer::streamHeader() + chunkLine("one") + doneLine);
    m_server->send(1, doneLine);
    QVERIFY(first.waitForOutcome() && second.waitForOutcome());
    QCOMPARE(first.events.at(1), QStringLiteral("one"));
    QCOMPARE(second.events.at(1), QStringLiteral("two"));
}

void TestProxyAnswer::neverEmitsBeforeReturning()
{
    // A signal emitted within the call would be lost, as nothing is connected yet.
    ProxyQueryService service(*m_network, BackendEndpoints(QStringLiteral("nothing://x")));
    QueryRecorder recorder(service.query({QStringLiteral("Hi"), {}, {}, QStringLiteral("t")}));
    QVERIFY(!recorder.outcome);
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.outcome->error().kind, Kind::NetworkError);
    QVERIFY(recorder.waitForDeletion());
}

void TestProxyAnswer::cancelClosesSocket()
{
    QueryRecorder *recorder = nullptr;
    RunningQuery *query = startStreaming(recorder);
    m_server->send(0, chunkLine("never seen"));
    query->cancel();
    query->cancel();
    QVERIFY(recorder->waitForDeletion());
    QTRY_VERIFY(m_server->requests().constFirst().disconnected);
    QCOMPARE(recorder->events, (QStringList{QStringLiteral("first"), QStringLiteral("a")}));
}

void TestProxyAnswer::cancelBeforeResponse()
{
    QueryRecorder early(start());
    early.query->cancel();
    QVERIFY(early.waitForDeletion());
    QVERIFY(early.events.isEmpty());

    QueryRecorder rejected(
        m_service->query({QStringLiteral("Hi"), {}, {}, QStringLiteral("bad\n")}));
    rejected.query->cancel();
    QVERIFY(rejected.waitForDeletion());
    QVERIFY(rejected.events.isEmpty());
}

void TestProxyAnswer::slotMayCancel()
{
    QueryRecorder recorder(startAndWaitForRequest());
    connect(recorder.query, &RunningQuery::chunk, recorder.query,
            [query = recorder.query.data()] { query->cancel(); });
    m_server->send(0,
                   ScriptedHttpServer::streamHeader() + chunkLine("a") + chunkLine("b") + doneLine);
    QVERIFY(recorder.waitForDeletion());
    QCOMPARE(recorder.events, (QStringList{QStringLiteral("first"), QStringLiteral("a")}));
}

void TestProxyAnswer::slotMayDelete_data()
{
    QTest::addColumn<QString>("when");
    QTest::addColumn<QStringList>("events");
    const QString first = QStringLiteral("first");
    const QString text = QStringLiteral("a");
    const QString end = QStringLiteral("finished");
    QTest::newRow("first byte") << first << QStringList{first};
    QTest::newRow("chunk") << text << QStringList{first, text};
    QTest::newRow("finished") << end << QStringList{first, text, QStringLiteral("b"), end};
}

void TestProxyAnswer::slotMayDelete()
{
    QFETCH(QString, when);
    QFETCH(QStringList, events);
    QueryRecorder recorder(startAndWaitForRequest());
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
    QCOMPARE(recorder.events, events);
}

void TestProxyAnswer::slotMayRunNestedEventLoop()
{
    QueryRecorder recorder(startAndWaitForRequest());
    connect(recorder.query, &RunningQuery::firstByte, this, [&] {
        // The rest arrives and the connection closes while the first slot is still running.
        m_server->send(0, chunkLine("b") + "data: {\"type\":\"error\",\"message\":\"m\"}\n");
        m_server->end(0, Ending::Close);
        QTRY_VERIFY(m_server->requests().constFirst().disconnected);
        QTest::qWait(50);
    });
    m_server->send(0, ScriptedHttpServer::streamHeader() + chunkLine("a"));
    QVERIFY(recorder.waitForOutcome());
    QCOMPARE(recorder.events, (QStringList{QStringLiteral("first"), QStringLiteral("a"),
                                           QStringLiteral("b"), QStringLiteral("finished")}));
    QCOMPARE(recorder.outcome->error().message, QStringLiteral("m"));
    QVERIFY(recorder.waitForDeletion());
}

void TestProxyAnswer::chunkFloodIsDeliveredInBatches()
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
    // Count the chunks between two runs of another event on the same thread.
    qsizetype batch = 0;
    qsizetype largestBatch = 0;
    QObject context;
    QString answer;
    connect(query, &RunningQuery::chunk, this, [&](const QString &text) {
        answer += text;
        largestBatch = std::max(largestBatch, ++batch);
        if (batch == 1)
            QMetaObject::invokeMethod(
                &context, [&batch] { batch = 0; }, Qt::QueuedConnection);
    });
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    QCOMPARE(recorder.events.size(), 100'002);
    QVERIFY(answer == expected);
    QVERIFY2(largestBatch <= 2 * HttpQuery::maxEventsPerBatch,
             qPrintable(QString::number(largestBatch)));
    QCOMPARE(m_log->lines, QStringList());
}

void TestProxyAnswer::chunkFloodDoesNotStarveEventLoop()
{
    constexpr int events = 100 * HttpQuery::maxEventsPerBatch;
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a").repeated(events) +
                             doneLine,
                         Ending::Close);
    RunningQuery *query = start();
    QueryRecorder recorder(query);
    // Like the page engine, each task queues the next one.
    bool isStreaming = false;
    int taskCount = 0;
    QObject context;
    std::function<void()> task = [&] {
        taskCount += isStreaming ? 1 : 0;
        if (!recorder.outcome)
            QMetaObject::invokeMethod(&context, task, Qt::QueuedConnection);
    };
    connect(query, &RunningQuery::firstByte, this, [&] { isStreaming = true; });
    task();
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    // Far more than one task per batch.
    QVERIFY2(taskCount > 5 * 100, qPrintable(QString::number(taskCount)));
}

void TestProxyAnswer::cancelStopsChunkFlood()
{
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine("a").repeated(2000),
                         Ending::KeepOpen);
    RunningQuery *query = start();
    int chunks = 0;
    connect(query, &RunningQuery::chunk, this, [&] { ++chunks; });
    // Cancel after the first batch, with the rest pending.
    QVERIFY(QTest::qWaitFor([&] { return chunks > 0; }, 10'000));
    const int before = chunks;
    const QPointer<RunningQuery> watched(query);
    query->cancel();
    QVERIFY(QTest::qWaitFor([&] { return watched.isNull(); }, 10'000));
    QCOMPARE(chunks, before);
}

void TestProxyAnswer::hugeChunkIsDeliveredWhole()
{
    const QByteArray text = QByteArray("0123456789abcdef").repeated(5 * 1024 * 1024 / 16);
    m_server->answerWith(ScriptedHttpServer::streamHeader() + chunkLine(text) + doneLine,
                         Ending::Close);
    QueryRecorder recorder(start());
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
    QCOMPARE(recorder.events.size(), 3);
    QVERIFY(recorder.events[1] == QLatin1StringView(text));
}

void TestProxyAnswer::queryOutlivesService()
{
    QueryRecorder recorder(startAndWaitForRequest());
    m_service.reset();
    m_server->send(0, ScriptedHttpServer::streamHeader() + chunkLine("a") + doneLine);
    QVERIFY(recorder.waitForOutcome());
    QVERIFY(recorder.outcome->has_value());
}

void TestProxyAnswer::destroyingNetworkManagerFailsQuery()
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
