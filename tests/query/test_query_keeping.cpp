// Tests which screenshot is sent with which prompt, and which thread is shown and saved.

#include "KeepingFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>

using namespace quellora;

namespace {

using Fixture = KeepingFixture;

} // namespace

class TestQueryKeeping : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void removedScreenshotIsNotSent()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.capture("removed");
        k.f.threads.clearStagedScreenshot();
        k.ask("text");
        QVERIFY(!k.f.service.requests.last().imageBase64);
        verifyTurns(k, {"text"});
    }

    void screenshotOfFailedQueryIsNotReused()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.captureAndSend("failed");
        k.f.transfer()->finish(failure(QueryError::Kind::HttpError, {}, 500));
        k.ask("text");
        verifyTurns(k, {"text"});
    }

    void screenshotStagedWhileStreamingIsSentWithNextPrompt()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.orchestrator.sendPromptOnly("one");
        k.capture("staged");
        k.answer();
        k.f.orchestrator.sendPromptOnly("two");
        QCOMPARE(k.f.display.streamScreenshot->imageData, "staged");
        k.answer();
        verifyTurns(k, {"one", "two<staged"});
    }

    void identicalScreenshotsGetDistinctIndexes()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.capture("same");
        k.f.orchestrator.sendPromptOnly("one");
        k.capture("same");
        k.answer();
        k.ask("two");
        QCOMPARE(k.current().turns.at(0).screenshot->index, 0);
        QCOMPARE(k.current().turns.at(1).screenshot->index, 1);
    }

    void stoppedAnswerKeepsItsScreenshot()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.captureAndSend("sent");
        k.f.transfer()->answer("half");
        k.f.orchestrator.stop();
        verifyTurns(k, {"server prompt<sent"});
    }

    void answerOfEndedThreadKeepsItsScreenshot()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.captureAndSend("sent");
        const QUuid id = k.current().id;
        k.f.threads.startNewThread();
        k.answer();
        QCOMPARE(k.stored(id), "server prompt<sent | sent |");
    }

    void querySentBeforeEnablingHistoryIsSavedWithScreenshot()
    {
        Fixture k;
        k.f.captureAndSend("sent");
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.answer();
        QCOMPARE(k.stored(k.current().id), "server prompt<sent | sent |");
    }

    void lateAnswerRestoresScreenshotOfReopenedThread()
    {
        Fixture k;
        k.f.captureAndSend("sent");
        FakeTransfer *first = k.f.transfer();
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.ask("two");
        const QUuid id = k.current().id;
        k.f.threads.startNewThread();
        k.open(id);
        QVERIFY(k.current().screenshots.isEmpty());
        first->answer("r");
        first->finish(done());
        QCOMPARE(k.stored(id), "two server prompt<sent | sent |");
        // It keeps its index.
        k.capture("staged");
        QCOMPARE(k.current().screenshots.constFirst().index, 0);
        QCOMPARE(k.current().screenshots.constLast().index, 1);
    }

    void unstagedScreenshotIsNotSaved()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.capture("dropped");
        k.f.captureAndSend("sent");
        k.answer();
        QCOMPARE(k.stored(k.current().id), "server prompt<sent | sent |");
    }

    void threadPerSendKeepsThreadCurrentUntilNextSend()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        k.ask("one");
        const QUuid first = k.current().id;
        // Notes can be added to it and deleted.
        k.f.orchestrator.addNote("note");
        QCOMPARE(k.current().id, first);
        QCOMPARE(k.f.display.rendered.last().turns.size(), 1);
        QCOMPARE(k.stored(first), "one | | note");
        QVERIFY(k.f.threads.removeNote(k.current().notes.first().id));
        QCOMPARE(k.stored(first), "one | |");
        // The next prompt is sent without its context.
        k.ask("two");
        QVERIFY(k.current().id != first);
        QCOMPARE(k.f.service.requests.last().prompt, "two");
        QCOMPARE(k.stored(first), "one | |");
        QCOMPARE(k.stored(k.current().id), "two | |");
    }

    void threadPerSendMovesStagedScreenshot_data()
    {
        QTest::addColumn<bool>("whileAnswering");
        QTest::newRow("staged while the answer streams") << true;
        QTest::newRow("staged after the answer") << false;
    }
    void threadPerSendMovesStagedScreenshot()
    {
        QFETCH(bool, whileAnswering);
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        k.f.orchestrator.sendPromptOnly("one");
        if (whileAnswering)
            k.capture("staged");
        k.answer();
        if (!whileAnswering)
            k.capture("staged");
        const QUuid first = k.current().id;
        QVERIFY(k.f.threads.hasAttachedScreenshot());
        QCOMPARE(k.stored(first), "one | staged |");
        k.f.orchestrator.sendPromptOnly("two");
        QCOMPARE(k.f.service.requests.last().imageBase64, QByteArray("staged").toBase64());
        QCOMPARE(k.f.display.streamScreenshot->imageData, "staged");
        QVERIFY(!k.f.threads.hasAttachedScreenshot());
        k.answer();
        QCOMPARE(k.stored(first), "one | |");
        QCOMPARE(k.disk.names(first), QStringList{"session.json"});
        QCOMPARE(k.stored(k.current().id), "two<staged | staged |");
    }

    void captureAndSendLeavesStagedScreenshotInOldThread()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        k.ask("one");
        k.capture("staged");
        const QUuid first = k.current().id;
        k.f.captureAndSend("fresh");
        k.answer();
        QCOMPARE(k.stored(first), "one | staged |");
        QCOMPARE(k.stored(k.current().id), "server prompt<fresh | fresh |");
    }

    void threadPerSendKeepsThreadIfNothingIsSent()
    {
        Fixture k;
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        k.ask("one");
        const QUuid first = k.current().id;
        k.f.orchestrator.triggerCaptureAndSend();
        k.f.captureReturns(
            captureFailure(ScreenshotCapture::CaptureError::Kind::NonZeroExit, {}, 1));
        QCOMPARE(k.current().id, first);
        k.f.messages.updateUsage(1000, 1000);
        k.f.orchestrator.sendPromptOnly("refused");
        QCOMPARE(k.current().id, first);
    }

    void reopenedThreadContinues()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        k.ask("one");
        const QUuid first = k.current().id;
        k.open(first);
        k.ask("two");
        QCOMPARE(k.stored(first), "one two | |");
        k.ask("three");
        k.open(first);
        k.ask("four");
        QCOMPARE(k.stored(first), "one two four | |");
    }

    void disablingThreadPerSendContinuesThread()
    {
        Fixture k;
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        k.ask("one");
        k.f.settings.setStartNewThreadPerSendEnabled(false);
        k.ask("two");
        QCOMPARE(k.current().turns.size(), 2);
        // Enabled again, the thread ends after the next answer.
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        k.ask("three");
        QCOMPARE(k.current().turns.size(), 3);
        k.ask("four");
        QCOMPARE(k.current().turns.size(), 1);
    }

    void threadWithoutAnswerIsReused()
    {
        Fixture k;
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        k.f.captureAndSend("sent");
        const QUuid first = k.current().id;
        k.f.transfer()->finish(failure(QueryError::Kind::HttpError, {}, 500));
        k.ask("again");
        QCOMPARE(k.current().id, first);
    }

    void indexesOfRemovedScreenshotsAreNotReused()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        k.ask("one");
        const QUuid first = k.current().id;
        k.capture("moved");
        QCOMPARE(k.current().screenshots.constLast().index, 0);
        k.ask("two");
        k.open(first);
        k.capture("new");
        QCOMPARE(k.current().screenshots.constLast().index, 1);
    }

private:
    /// Compares the turns of the current thread, in memory and after reloading it.
    static void verifyTurns(Fixture &k, const QStringList &expected)
    {
        const QUuid id = k.current().id;
        const auto turns = [&k] { return Fixture::text(k.current()).section('|', 0, 0).trimmed(); };
        QCOMPARE(turns(), expected.join(' '));
        k.f.threads.startNewThread();
        k.open(id);
        QCOMPARE(turns(), expected.join(' '));
    }
};

QUELLORA_TEST(QCoreApplication, TestQueryKeeping)
#include "test_query_keeping.moc"
