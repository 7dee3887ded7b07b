#include "OrchestratorFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>

using namespace quellora;

namespace {

using Fixture = OrchestratorFixture;
using Activity = QueryOrchestrator::Activity;

QStringList responses(const CaptureSession &session)
{
    QStringList texts;
    for (const auto &turn : session.turns)
        texts << turn.prompt + QLatin1Char('=') + turn.response;
    return texts;
}

} // namespace

/// Further actions, other threads and failures while an answer is streaming.
class TestQueryConcurrency : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void noteDoesNotInterruptStreaming()
    {
        Fixture f;
        f.captureAndSend("shot");
        f.transfer()->answer("half ");
        f.display.calls.clear();
        f.orchestrator.addNote("remember");
        QCOMPARE(f.display.calls, QStringList{"resumeStream"});
        QCOMPARE(f.display.streamSession->notes.first().text, "remember");
        QCOMPARE(f.display.streamPrompt, "server prompt");
        QCOMPARE(f.display.streamScreenshot->imageData, "shot");
        QCOMPARE(f.display.streamed, "half ");
        QVERIFY(f.log.contains(prefix + "Note added to current session"));
        f.transfer()->answer("an answer");
        QCOMPARE(f.display.streamed, "half an answer");
        f.display.calls.clear();
        f.transfer()->finish(done());
        QCOMPARE(f.display.calls, (QStringList{"streamEnd", "renderThread"}));
        const CaptureSession shown = f.display.rendered.last();
        QCOMPARE(shown.notes.size(), 1);
        QCOMPARE(responses(shown), QStringList{"server prompt=half an answer"});
    }

    void discardAnswersCancelsQueriesOfDeletedThread()
    {
        Fixture f;
        f.settings.setKeepAIHistoryEnabled(true);
        f.orchestrator.sendPromptOnly("kept");
        const QPointer<FakeTransfer> kept = f.service.transfers.at(0);
        const QUuid keptThread = f.threads.currentSession()->id;
        f.threads.startNewThread();
        f.orchestrator.sendPromptOnly("doomed");
        const QPointer<FakeTransfer> doomed = f.service.transfers.at(1);
        const QUuid doomedThread = f.threads.currentSession()->id;
        doomed->answer("half");
        f.display.calls.clear();

        QVERIFY(f.threads.setAside(doomedThread));
        f.orchestrator.discardAnswers({doomedThread});
        f.threads.forget(doomedThread);
        QVERIFY(doomed->cancelled && !kept->cancelled);
        QCOMPARE(f.display.calls, QStringList{"abandonStream"});
        QCOMPARE(f.orchestrator.activity(), Activity::Idle);
        f.saver.saved.clear();
        kept->answer("text");
        kept->finish(done());
        QCOMPARE(responses(f.saver.saved.value(keptThread)), QStringList{"kept=text"});
        QVERIFY(!f.saver.saved.contains(doomedThread));
    }

    void olderAnswerIsShownAfterNewerFinishes()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        const QPointer<FakeTransfer> first = f.service.transfers.at(0);
        first->answer("a");
        f.orchestrator.sendPromptOnly("two");
        const QPointer<FakeTransfer> second = f.service.transfers.at(1);
        QCOMPARE(f.orchestrator.activity(), Activity::Waiting);
        first->answer("b");
        second->answer("c");
        QCOMPARE(f.display.streamed, "c");
        f.display.calls.clear();
        second->finish(done());
        QCOMPARE(f.display.calls, (QStringList{"streamEnd", "resumeStream"}));
        QCOMPARE(f.display.streamPrompt, "one");
        QCOMPARE(f.display.streamed, "ab");
        QCOMPARE(responses(*f.display.streamSession), QStringList{"two=c"});
        QCOMPARE(f.orchestrator.activity(), Activity::Streaming);
        QCOMPARE(f.orchestrator.shownPrompt(), "one");
        first->answer("d");
        first->finish(done());
        QCOMPARE(f.orchestrator.activity(), Activity::Idle);
        QCOMPARE(responses(f.display.rendered.last()), (QStringList{"two=c", "one=abd"}));
    }

    void olderAnswerFinishesAboveNewer()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.orchestrator.sendPromptOnly("two");
        f.service.transfers.at(1)->answer("newer");
        f.service.transfers.at(0)->answer("older");
        f.display.calls.clear();
        f.service.transfers.at(0)->finish(done());
        QCOMPARE(f.display.calls, QStringList{"resumeStream"});
        QCOMPARE(responses(*f.display.streamSession), QStringList{"one=older"});
        QCOMPARE(f.display.streamPrompt, "two");
        QCOMPARE(f.display.streamed, "newer");
    }

    void stopCancelsNewestOnly()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.service.transfers.at(0)->answer("older");
        f.orchestrator.sendPromptOnly("two");
        const QPointer<FakeTransfer> second = f.service.transfers.at(1);
        f.orchestrator.stop();
        QVERIFY(!second || second->cancelled);
        QCOMPARE(f.display.calls.last(), "resumeStream");
        QCOMPARE(f.display.streamed, "older");
        QCOMPARE(f.orchestrator.activity(), Activity::Streaming);
        f.orchestrator.stop();
        QCOMPARE(f.orchestrator.activity(), Activity::Stopped);
        QCOMPARE(responses(*f.threads.currentSession()), QStringList{"one=older"});
    }

    void captureAndSendWhileStreaming()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.service.transfers.at(0)->answer("a");
        f.captureAndSend("second shot");
        QCOMPARE(f.service.requests.size(), 2);
        QCOMPARE(f.service.requests.last().imageBase64, QByteArray("second shot").toBase64());
        // The unfinished answer is not part of the next prompt's context.
        QCOMPARE(f.service.requests.last().prompt, "server prompt");
        f.service.transfers.at(0)->finish(done());
        f.service.transfers.at(1)->answer("b");
        f.service.transfers.at(1)->finish(done());
        QCOMPARE(responses(*f.threads.currentSession()), (QStringList{"one=a", "server prompt=b"}));
        QCOMPARE(f.threads.currentSession()->screenshots.size(), 1);
    }

    void answerOfOldThreadIsNotShownInNewThread()
    {
        Fixture f;
        f.settings.setKeepAIHistoryEnabled(true);
        f.orchestrator.sendPromptOnly("one");
        const QUuid old = f.threads.currentSession()->id;
        f.transfer()->answer("a");
        f.threads.startNewThread();
        QCOMPARE(f.orchestrator.activity(), Activity::Idle);
        QCOMPARE(f.orchestrator.shownPrompt(), "");
        QCOMPARE(f.display.calls.last(), "abandonStream");
        f.display.calls.clear();
        f.transfer()->answer("b");
        f.transfer()->finish(done());
        QCOMPARE(f.display.calls, QStringList());
        QVERIFY(f.display.streamed != "ab");
        QVERIFY(f.threads.currentSession()->turns.isEmpty());
        QCOMPARE(responses(f.saver.saved.value(old)), QStringList{"one=ab"});
        QCOMPARE(f.messages.tokensUsed(), 200);
        QCOMPARE(f.service.telemetry.size(), 1);
    }

    void concurrentAnswersAreAddedToTheirThreads()
    {
        Fixture f;
        f.settings.setKeepAIHistoryEnabled(true);
        f.orchestrator.sendPromptOnly("one");
        const QUuid first = f.threads.currentSession()->id;
        f.threads.startNewThread();
        f.orchestrator.sendPromptOnly("two");
        const QUuid second = f.threads.currentSession()->id;
        QVERIFY(first != second);
        f.service.transfers.at(0)->answer("a");
        f.service.transfers.at(1)->answer("b");
        QCOMPARE(f.display.streamed, "b");
        f.service.transfers.at(0)->finish(done());
        QCOMPARE(f.orchestrator.activity(), Activity::Streaming);
        f.service.transfers.at(1)->finish(done());
        QCOMPARE(responses(f.saver.saved.value(first)), QStringList{"one=a"});
        QCOMPARE(responses(f.saver.saved.value(second)), QStringList{"two=b"});
    }

    void answerOfUnsavedThreadIsDiscarded()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.threads.startNewThread();
        f.transfer()->answer("a");
        f.transfer()->finish(done());
        QVERIFY(f.saver.saved.isEmpty());
        QVERIFY(f.threads.currentSession()->turns.isEmpty());
    }

    void newerFailureShowsErrorPageUntilOlderFinishes()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.service.transfers.at(0)->answer("a");
        f.orchestrator.sendPromptOnly("two");
        f.display.calls.clear();
        f.service.transfers.at(1)->finish(failure(QueryError::Kind::HttpError, {}, 500));
        QCOMPARE(f.display.calls, (QStringList{"abandonStream", "loadContent", "showWindow"}));
        QCOMPARE(f.orchestrator.activity(), Activity::Streaming);
        f.display.calls.clear();
        f.display.streamed.clear();
        f.service.transfers.at(0)->answer("b");
        QCOMPARE(f.display.streamed, "");
        f.service.transfers.at(0)->finish(done());
        QCOMPARE(f.display.calls, QStringList{"renderThread"});
        QCOMPARE(responses(f.display.rendered.last()), QStringList{"one=ab"});
    }

    void olderFailureDoesNotInterruptNewer()
    {
        Fixture f;
        QSignalSpy lost(&f.orchestrator, &QueryOrchestrator::answerLost);
        f.orchestrator.sendPromptOnly("one");
        f.orchestrator.sendPromptOnly("two");
        f.service.transfers.at(1)->answer("b");
        f.display.calls.clear();
        f.service.transfers.at(0)->finish(failure(QueryError::Kind::NetworkError, "gone"));
        QCOMPARE(f.display.calls, QStringList());
        QCOMPARE(lost.size(), 1);
        QCOMPARE(lost.first().first(), "Could not reach backend proxy: gone");
        QVERIFY(f.log.contains(prefix + "ERROR: gone"));
        QCOMPARE(f.orchestrator.activity(), Activity::Streaming);
        f.service.transfers.at(1)->answer("c");
        QCOMPARE(f.display.streamed, "bc");
        f.service.transfers.at(1)->finish(done());
        QCOMPARE(responses(f.display.rendered.last()), QStringList{"two=bc"});
    }

    void partialOlderAnswerIsShownAboveNewer()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.orchestrator.sendPromptOnly("two");
        f.service.transfers.at(0)->answer("half");
        f.service.transfers.at(1)->answer("b");
        f.display.calls.clear();
        f.service.transfers.at(0)->finish(failure(QueryError::Kind::StreamEndedUnexpectedly));
        QCOMPARE(f.display.calls, QStringList{"resumeStream"});
        QCOMPARE(responses(*f.display.streamSession), QStringList{"one=half"});
        QCOMPARE(f.display.streamed, "b");
    }

    void errorInOtherThreadKeepsPage()
    {
        Fixture f;
        QSignalSpy lost(&f.orchestrator, &QueryOrchestrator::answerLost);
        f.settings.setKeepAIHistoryEnabled(true);
        f.orchestrator.sendPromptOnly("one");
        const QUuid old = f.threads.currentSession()->id;
        f.service.transfers.at(0)->answer("half");
        f.threads.startNewThread();
        f.orchestrator.sendPromptOnly("two");
        f.service.transfers.at(1)->answer("b");
        f.service.transfers.at(1)->finish(done());
        f.display.calls.clear();
        f.service.transfers.at(0)->finish(failure(QueryError::Kind::HttpError, {}, 502));
        QCOMPARE(f.display.calls, QStringList());
        QVERIFY(f.display.pages.isEmpty());
        QCOMPARE(lost.size(), 1);
        QCOMPARE(lost.first().first(), "Proxy request failed: HTTP 502");
        QVERIFY(f.log.contains(prefix + "ERROR: Proxy HTTP 502"));
        // The partial answer is saved in its thread.
        QCOMPARE(responses(f.saver.saved.value(old)), QStringList{"one=half"});
    }

    void outOfCreditsPageDoesNotCancelRunningAnswer()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.orchestrator.sendPromptOnly("two");
        f.service.transfers.at(1)->answer("b");
        f.display.calls.clear();
        f.service.transfers.at(0)->finish(done(0));
        QCOMPARE(f.display.calls,
                 (QStringList{"resumeStream", "abandonStream", "loadContent", "showWindow"}));
        f.display.streamed.clear();
        f.service.transfers.at(1)->answer("c");
        QCOMPARE(f.display.streamed, "");
        QCOMPARE(f.orchestrator.activity(), Activity::Streaming);
        // Showing the thread again resumes the stream with the complete text.
        f.orchestrator.showCurrentThread();
        QCOMPARE(f.display.calls.last(), "resumeStream");
        QCOMPARE(f.display.streamed, "bc");
        f.service.transfers.at(1)->answer("d");
        QCOMPARE(f.display.streamed, "bcd");
        f.service.transfers.at(1)->finish(done(0));
        QCOMPARE(responses(f.display.rendered.last()), (QStringList{"one=", "two=bcd"}));
    }

    void chunksAreNotRenderedAfterLeavePage()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.transfer()->answer("a");
        f.orchestrator.leavePage();
        f.display.streamed.clear();
        f.transfer()->answer("b");
        QCOMPARE(f.display.streamed, "");
        f.transfer()->finish(done());
        QCOMPARE(responses(f.display.rendered.last()), QStringList{"one=ab"});
    }

    void rateLimitOnNewerResumesOlder()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.service.transfers.at(0)->answer("a");
        f.orchestrator.sendPromptOnly("two");
        f.service.transfers.at(1)->finish(failure(QueryError::Kind::RateLimited));
        QCOMPARE(f.display.calls.last(), "resumeStream");
        QCOMPARE(f.display.streamPrompt, "one");
        QCOMPARE(f.display.streamed, "a");
    }

    void captureErrorDoesNotInterruptAnswer()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.transfer()->answer("a");
        f.orchestrator.captureNoSend();
        f.captureReturns(captureFailure(ScreenshotCapture::CaptureError::Kind::NonZeroExit, {}, 1));
        f.transfer()->answer("b");
        f.transfer()->finish(done());
        QCOMPARE(responses(f.display.rendered.last()), QStringList{"one=ab"});
    }

    void threadPerSendWaitsForLastAnswer()
    {
        Fixture f;
        f.settings.setStartNewThreadPerSendEnabled(true);
        f.orchestrator.sendPromptOnly("one");
        f.orchestrator.sendPromptOnly("two");
        const QUuid first = f.threads.currentSession()->id;
        f.service.transfers.at(1)->finish(done());
        f.orchestrator.sendPromptOnly("three");
        QCOMPARE(f.threads.currentSession()->id, first);
        f.service.transfers.at(2)->finish(done());
        f.service.transfers.at(0)->finish(done());
        QCOMPARE(f.threads.currentSession()->id, first);
        f.orchestrator.sendPromptOnly("four");
        QVERIFY(f.threads.currentSession()->id != first);
    }

    void newlyTypedPromptIsNotCleared()
    {
        Fixture f;
        f.defaults.setString("userPrompt", "one");
        f.orchestrator.sendPromptOnly("one");
        f.defaults.setString("userPrompt", "two");
        f.orchestrator.sendPromptOnly("two");
        f.service.transfers.at(0)->finish(done());
        QCOMPARE(f.defaults.stringValue("userPrompt"), "two");
        f.service.transfers.at(1)->finish(failure(QueryError::Kind::HttpError, {}, 500));
        QCOMPARE(f.defaults.stringValue("userPrompt"), "two");
    }

    void promptIsClearedIfNeverSet()
    {
        Fixture f;
        QVERIFY(!f.defaults.stringValue("userPrompt"));
        f.captureAndSend();
        f.transfer()->finish(done());
        QCOMPARE(f.defaults.stringValue("userPrompt"), "");
    }

    void screenshotStagedWhileStreamingIsSentNext()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.orchestrator.captureNoSend();
        f.captureReturns(ScreenshotCapture::Result{"staged", 1});
        QVERIFY(f.threads.hasAttachedScreenshot());
        f.transfer()->finish(done());
        QVERIFY(f.threads.hasAttachedScreenshot());
        f.orchestrator.sendPromptOnly("two");
        QCOMPARE(f.service.requests.last().imageBase64, QByteArray("staged").toBase64());
        QVERIFY(!f.threads.hasAttachedScreenshot());
    }

    void reopenedThreadResumesStreaming()
    {
        Fixture f;
        f.settings.setKeepAIHistoryEnabled(true);
        f.orchestrator.sendPromptOnly("one");
        f.transfer()->answer("a");
        const CaptureSession old = *f.threads.currentSession();
        f.threads.startNewThread();
        f.threads.openFromHistory(old);
        QCOMPARE(f.orchestrator.activity(), Activity::Streaming);
        f.orchestrator.showCurrentThread();
        QCOMPARE(f.display.streamed, "a");
        f.transfer()->answer("b");
        QCOMPARE(f.display.streamed, "ab");
        f.transfer()->finish(done());
        QCOMPARE(responses(*f.threads.currentSession()), QStringList{"one=ab"});
    }
};

QUELLORA_TEST(QCoreApplication, TestQueryConcurrency)
#include "test_query_concurrency.moc"
