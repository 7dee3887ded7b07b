// Tests asking the last question again, unchanged or edited, and which version of its turn is
// shown, sent as context and saved.

#include "KeepingFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>

using namespace quellora;

class TestRetry : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void answerBecomesAnotherVersion()
    {
        Fixture k;
        k.f.model = "first-model";
        ask(k, "before", "b");
        k.f.captureAndSend("picture");
        k.answer("one");
        const CaptureSession::Turn turn = k.current().turns.last();
        k.f.model = "other-model";
        k.f.now = k.f.now.addSecs(60);
        k.f.display.calls.clear();
        k.f.orchestrator.retry();
        QCOMPARE(k.f.display.calls, (QStringList{"streamStart", "showWindow"}));
        QCOMPARE(k.f.display.streamReplaced, turn.id);
        QCOMPARE(k.f.display.streamPrompt, turn.prompt);
        QCOMPARE(k.f.display.streamScreenshot->imageData, "picture");
        const QueryRequest request = k.f.service.requests.last();
        QCOMPARE(request.model, "other-model");
        QCOMPARE(QByteArray::fromBase64(*request.imageBase64), "picture");
        // The answer that is asked for again is not among the context.
        QCOMPARE(request.prompt, "Previous conversation:\nUser: before\nAssistant: b\n\n"
                                 "Current message:\n" +
                                     turn.prompt);
        k.answer("two");
        QCOMPARE(k.current().turns.size(), 2);
        verifyVersions(k, {"one", "two"}, 1);
        const CaptureSession::Turn &again = k.current().turns.last();
        QCOMPARE(again.id, turn.id);
        QCOMPARE(again.createdAt, k.f.now);
        QCOMPARE(again.askedAt(), turn.createdAt);
        QCOMPARE(k.f.display.rendered.last(), k.current());
        // Only the version on show goes along.
        ask(k, "next");
        QVERIFY(k.f.service.requests.last().prompt.contains("Assistant: two"));
        QVERIFY(!k.f.service.requests.last().prompt.contains("Assistant: one"));
    }

    void shownVersionIsTheContext()
    {
        Fixture k;
        ask(k, "q", "one");
        k.f.orchestrator.retry();
        k.answer("two");
        const QUuid turn = k.current().turns.last().id;
        k.f.display.calls.clear();
        k.f.orchestrator.showVersion(turn, 0);
        QCOMPARE(k.f.display.calls, QStringList{"renderThread"});
        verifyVersions(k, {"one", "two"}, 0);
        for (const qsizetype position : {0, -1, 2})
            k.f.orchestrator.showVersion(turn, position);
        k.f.orchestrator.showVersion(QUuid::createUuid(), 1);
        QCOMPARE(k.f.display.calls, QStringList{"renderThread"});
        k.f.orchestrator.sendPromptOnly("next");
        QVERIFY(k.f.service.requests.last().prompt.contains("Assistant: one"));
        QVERIFY(!k.f.service.requests.last().prompt.contains("Assistant: two"));
        // Paging while an answer is under way leaves that alone.
        k.f.transfer()->answer("so far");
        k.f.orchestrator.showVersion(turn, 1);
        QCOMPARE(k.f.display.calls.last(), "resumeStream");
        QCOMPARE(k.f.display.streamed, "so far");
        k.answer("!");
        QCOMPARE(k.current().turns.last().response, "so far!");
    }

    void draftInThePromptBoxIsKept()
    {
        Fixture k;
        ask(k, "q", "one");
        k.f.settings.setUserPrompt("half a thought");
        k.f.orchestrator.retry();
        k.answer("two");
        QCOMPARE(k.f.settings.userPrompt(), "half a thought");
    }

    void failedQuestionIsAskedAgain_data()
    {
        QTest::addColumn<bool>("isStopped");
        QTest::newRow("failed") << false;
        QTest::newRow("stopped") << true;
    }
    void failedQuestionIsAskedAgain()
    {
        QFETCH(bool, isStopped);
        Fixture k;
        k.f.settings.setUserPrompt("what?");
        k.capture("picture");
        QVERIFY(!k.f.orchestrator.lastQuestion().question());
        k.f.orchestrator.sendPromptOnly("what?");
        if (isStopped)
            k.f.orchestrator.stop();
        else
            k.f.transfer()->finish(failure(QueryError::Kind::HttpError, {}, 500));
        QVERIFY(k.current().turns.isEmpty());
        QCOMPARE(k.f.settings.userPrompt(), "what?");
        k.f.orchestrator.retry();
        QCOMPARE(k.f.service.requests.last().prompt, "what?");
        QCOMPARE(QByteArray::fromBase64(*k.f.service.requests.last().imageBase64), "picture");
        QVERIFY(k.f.display.streamReplaced.isNull());
        k.answer("finally");
        verifyVersions(k, {"finally"}, 0);
        QCOMPARE(KeepingFixture::text(k.current()), "what?<picture | picture |");
        // As after any answer.
        QCOMPARE(k.f.settings.userPrompt(), "");
    }

    void failedQuestionOfAnotherTextLeavesThePromptBoxAlone()
    {
        Fixture k;
        k.f.settings.setUserPrompt("");
        k.f.captureAndSend("picture");
        k.f.transfer()->finish(failure(QueryError::Kind::NetworkError));
        k.f.settings.setUserPrompt("next thought");
        k.f.orchestrator.retry();
        QCOMPARE(k.f.service.requests.last().prompt, "server prompt");
        k.answer("two");
        QCOMPARE(k.f.settings.userPrompt(), "next thought");
    }

    void missingTokenKeepsTheQuestion()
    {
        Fixture k;
        k.f.auth.clearSession();
        k.f.orchestrator.sendPromptOnly("what?");
        QVERIFY(k.f.service.requests.isEmpty());
        QCOMPARE(k.f.orchestrator.lastQuestion().question()->prompt, "what?");
    }

    void failedRetryKeepsTheAnswer_data()
    {
        QTest::addColumn<QString>("received");
        QTest::addColumn<QString>("end");
        QTest::addColumn<QStringList>("versions");
        QTest::addColumn<qsizetype>("shown");
        const QStringList one{"one"};
        const QStringList both{"one", "part"};
        for (const char *end : {"failure", "stop", "quit"})
            QTest::addRow("nothing, %s", end) << "" << end << one << qsizetype(0);
        QTest::newRow("part, failure") << "part"
                                       << "failure" << both << qsizetype(0);
        QTest::newRow("part, stop") << "part"
                                    << "stop" << both << qsizetype(1);
        QTest::newRow("part, quit") << "part"
                                    << "quit" << both << qsizetype(0);
    }
    void failedRetryKeepsTheAnswer()
    {
        QFETCH(QString, received);
        QFETCH(QString, end);
        QFETCH(QStringList, versions);
        QFETCH(qsizetype, shown);
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        ask(k, "q", "one");
        k.f.orchestrator.retry();
        if (!received.isEmpty())
            k.f.transfer()->answer(received);
        if (end == "failure")
            k.f.transfer()->finish(failure(QueryError::Kind::StreamEndedUnexpectedly));
        else if (end == "stop")
            k.f.orchestrator.stop();
        else
            k.f.orchestrator.cancelAll();
        verifyVersions(k, versions, shown);
        verifyStored(k, versions, shown);
    }

    void editedQuestionTakesThePlace()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.capture("picture");
        ask(k, "waht?", "one");
        k.f.settings.setUserPrompt("draft");
        QSignalSpy changed(&k.f.orchestrator.lastQuestion(), &LastQuestion::changed);
        k.f.orchestrator.editLastQuestion();
        QVERIFY(k.f.orchestrator.lastQuestion().isEditing());
        QCOMPARE(changed.size(), 1);
        QCOMPARE(k.f.settings.userPrompt(), "waht?");
        // Once more changes nothing.
        k.f.settings.setUserPrompt("what?");
        k.f.orchestrator.editLastQuestion();
        QCOMPARE(k.f.settings.userPrompt(), "what?");
        k.f.orchestrator.sendPromptOnly("what?");
        QVERIFY(!k.f.orchestrator.lastQuestion().isEditing());
        QCOMPARE(k.f.settings.userPrompt(), "draft");
        QCOMPARE(k.f.service.requests.last().prompt, "what?");
        QCOMPARE(QByteArray::fromBase64(*k.f.service.requests.last().imageBase64), "picture");
        k.answer("two");
        QCOMPARE(k.f.settings.userPrompt(), "draft");
        verifyVersions(k, {"one", "two"}, 1);
        QCOMPARE(k.current().turns.last().prompt, "what?");
        QCOMPARE(k.current().turns.last().otherVersions.first().prompt, "waht?");
        verifyStored(k, {"one", "two"}, 1);
    }

    void stagedScreenshotReplacesThatOfTheEditedQuestion()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.capture("old");
        ask(k, "q", "one");
        k.f.orchestrator.editLastQuestion();
        k.capture("new");
        k.f.orchestrator.sendPromptOnly("q2");
        QVERIFY(!k.f.threads.hasAttachedScreenshot());
        k.answer("two");
        QCOMPARE(k.stored(k.current().id), "q2<new | old new |");
        // The screenshot of an earlier version stays stored, and comes back with it.
        k.f.orchestrator.showVersion(k.current().turns.last().id, 0);
        QCOMPARE(k.stored(k.current().id), "q<old | old new |");
    }

    void captureAndSendTakesThePlaceOfTheEditedQuestion()
    {
        Fixture k;
        k.capture("old");
        ask(k, "q", "one");
        k.f.settings.setUserPrompt("draft");
        k.f.orchestrator.editLastQuestion();
        k.f.settings.setUserPrompt("q2");
        k.f.captureAndSend("new");
        QCOMPARE(k.f.service.requests.last().prompt, "q2");
        QCOMPARE(k.f.settings.userPrompt(), "draft");
        k.answer("two");
        verifyVersions(k, {"one", "two"}, 1);
        QCOMPARE(KeepingFixture::text(k.current()), "q2<new | old new |");
    }

    void failedEditIsAskedAgain_data()
    {
        QTest::addColumn<QString>("received");
        QTest::newRow("nothing") << "";
        QTest::newRow("part") << "part";
    }
    void failedEditIsAskedAgain()
    {
        QFETCH(QString, received);
        Fixture k;
        ask(k, "q", "one");
        k.f.orchestrator.editLastQuestion();
        k.f.orchestrator.sendPromptOnly("q2");
        if (!received.isEmpty())
            k.f.transfer()->answer(received);
        k.f.transfer()->finish(failure(QueryError::Kind::HttpError, {}, 500));
        QCOMPARE(k.current().turns.last().prompt, "q");
        k.f.orchestrator.retry();
        QCOMPARE(k.f.service.requests.last().prompt, "q2");
        k.answer("two");
        QCOMPARE(k.current().turns.size(), 1);
        QCOMPARE(k.current().turns.last().prompt, "q2");
        QCOMPARE(k.current().turns.last().response, "two");
    }

    void versionPutOnShowIsTheOneAskedAgain()
    {
        Fixture k;
        ask(k, "q", "one");
        k.f.orchestrator.editLastQuestion();
        k.f.orchestrator.sendPromptOnly("q2");
        k.answer("two");
        k.f.orchestrator.editLastQuestion();
        k.f.orchestrator.sendPromptOnly("q3");
        k.f.orchestrator.stop();
        k.f.orchestrator.showVersion(k.current().turns.last().id, 0);
        k.f.orchestrator.retry();
        QCOMPARE(k.f.service.requests.last().prompt, "q");
    }

    void cancelledEditBringsTheDraftBack()
    {
        Fixture k;
        ask(k, "q", "one");
        k.f.settings.setUserPrompt("draft");
        k.f.orchestrator.editLastQuestion();
        k.f.settings.setUserPrompt("changed");
        k.f.orchestrator.lastQuestion().cancelEditing();
        QCOMPARE(k.f.settings.userPrompt(), "draft");
        QVERIFY(!k.f.orchestrator.lastQuestion().isEditing());
        verifyVersions(k, {"one"}, 0);
    }

    void editOfAFailedQuestionLeavesNoDraft()
    {
        Fixture k;
        k.f.settings.setUserPrompt("q");
        k.f.orchestrator.sendPromptOnly("q");
        k.f.transfer()->finish(failure(QueryError::Kind::HttpError, {}, 500));
        k.f.orchestrator.editLastQuestion();
        QCOMPARE(k.f.settings.userPrompt(), "q");
        k.f.settings.setUserPrompt("q2");
        k.f.orchestrator.sendPromptOnly("q2");
        QCOMPARE(k.f.settings.userPrompt(), "");
        k.answer("two");
        QCOMPARE(KeepingFixture::text(k.current()), "q2 | |");
    }

    void editOfALeftThreadIsKeptInThePromptBox_data()
    {
        QTest::addColumn<QString>("draft");
        QTest::addColumn<QString>("written");
        QTest::addColumn<bool>("quits");
        QTest::addColumn<QString>("left");
        QTest::newRow("changed") << "draft"
                                 << "q2" << false << "draft\nq2";
        QTest::newRow("unchanged") << "draft"
                                   << "q" << false << "draft";
        QTest::newRow("emptied") << "draft"
                                 << " " << false << "draft";
        QTest::newRow("no draft") << ""
                                  << "q2" << false << "q2";
        QTest::newRow("quit") << "draft"
                              << "q2" << true << "draft\nq2";
    }
    void editOfALeftThreadIsKeptInThePromptBox()
    {
        QFETCH(QString, draft);
        QFETCH(QString, written);
        QFETCH(bool, quits);
        QFETCH(QString, left);
        Fixture k;
        ask(k, "q", "one");
        k.f.settings.setUserPrompt(draft);
        k.f.orchestrator.editLastQuestion();
        k.f.settings.setUserPrompt(written);
        if (quits)
            k.f.orchestrator.cancelAll();
        else
            k.f.threads.startNewThread();
        QVERIFY(!k.f.orchestrator.lastQuestion().isEditing());
        QCOMPARE(k.f.settings.userPrompt(), left);
    }

    void refusals()
    {
        Fixture k;
        QSignalSpy nothing(&k.f.orchestrator, &QueryOrchestrator::nothingToRetry);
        QSignalSpy refused(&k.f.orchestrator, &QueryOrchestrator::refused);
        k.f.orchestrator.retry();
        QCOMPARE(nothing.size(), 1);
        QCOMPARE(k.f.log.lines, QStringList{prefix + "Retry ignored — nothing has been asked"});
        k.f.orchestrator.editLastQuestion();
        QVERIFY(!k.f.orchestrator.lastQuestion().isEditing());
        // An empty new thread has no question either.
        k.f.threads.startNewThread();
        k.f.orchestrator.retry();
        QCOMPARE(nothing.size(), 2);

        k.f.orchestrator.sendPromptOnly("q");
        k.f.orchestrator.retry();
        k.f.orchestrator.editLastQuestion();
        QCOMPARE(k.f.log.lines.last(), prefix + "Retry ignored — an answer is under way");
        QVERIFY(!k.f.orchestrator.lastQuestion().isEditing());
        QCOMPARE(k.f.service.requests.size(), 1);
        k.answer("one");

        k.f.messages.updateUsage(1000, 1000);
        k.f.orchestrator.retry();
        QCOMPARE(refused.size(), 1);
        QCOMPARE(k.f.service.requests.size(), 1);
    }

    void threadPerSendStaysForTheRetry()
    {
        Fixture k;
        k.f.settings.setStartNewThreadPerSendEnabled(true);
        ask(k, "q", "one");
        const QUuid id = k.current().id;
        k.f.orchestrator.retry();
        k.f.transfer()->finish(failure(QueryError::Kind::HttpError, {}, 500));
        QCOMPARE(k.current().id, id);
        k.f.orchestrator.retry();
        k.answer("two");
        QCOMPARE(k.current().id, id);
        verifyVersions(k, {"one", "two"}, 1);
        ask(k, "next");
        QVERIFY(k.current().id != id);
    }

    void answerOfALeftThreadIsAddedToIt()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        ask(k, "q", "one");
        const QUuid id = k.current().id;
        k.f.orchestrator.retry();
        k.f.threads.startNewThread();
        k.answer("two");
        QVERIFY(k.current().turns.isEmpty());
        k.open(id);
        verifyVersions(k, {"one", "two"}, 1);
    }

    void answerForATurnThatIsGoneBecomesATurn()
    {
        Fixture k;
        ask(k, "unkept", "one");
        const QUuid id = k.current().id;
        k.f.threads.addNote("note");
        k.f.orchestrator.retry();
        k.f.threads.startNewThread();
        k.open(id);
        QVERIFY(k.current().turns.isEmpty());
        k.answer("two");
        verifyVersions(k, {"two"}, 0);
    }

    void olderFailureIsNotTheLastQuestion()
    {
        Fixture k;
        k.f.orchestrator.sendPromptOnly("older");
        QPointer<FakeTransfer> older = k.f.transfer();
        k.f.orchestrator.sendPromptOnly("newer");
        k.answer("n");
        older->finish(failure(QueryError::Kind::HttpError, {}, 500));
        QCOMPARE(k.f.orchestrator.lastQuestion().question()->prompt, "newer");
    }

    void versionsAreKeptFromWhenKeepingBegan()
    {
        Fixture k;
        ask(k, "q", "unkept");
        k.f.settings.setKeepAIHistoryEnabled(true);
        k.f.orchestrator.retry();
        k.answer("kept");
        verifyVersions(k, {"unkept", "kept"}, 1);
        verifyStored(k, {"kept"}, 0);
        // Whichever is on show.
        k.f.orchestrator.showVersion(k.current().turns.last().id, 0);
        verifyStored(k, {"kept"}, 0);
    }

    void versionsAreNotAddedToAThreadThatIsNotKeptAnyLonger()
    {
        Fixture k;
        k.f.settings.setKeepAIHistoryEnabled(true);
        ask(k, "q", "kept");
        k.f.threads.addNote("note");
        const QUuid id = k.current().id;
        k.f.threads.startNewThread();
        k.f.settings.setKeepAIHistoryEnabled(false);
        k.open(id);
        k.f.orchestrator.retry();
        k.answer("unkept");
        verifyVersions(k, {"kept", "unkept"}, 1);
        QVERIFY(k.f.threads.removeNote(k.current().notes.first().id));
        verifyStored(k, {"kept"}, 0);
        // Keeping it again keeps it whole.
        k.f.settings.setKeepAIHistoryEnabled(true);
        verifyStored(k, {"kept", "unkept"}, 1);
    }

    void screenshotOfAnOldTurnStaysItsOwn()
    {
        Fixture k;
        CaptureSession old = CaptureSession::create(k.f.now);
        old.addScreenshot("picture", k.f.now, k.f.now);
        // Stored before turns named their screenshot.
        old.turns.append({QUuid::createUuid(), "q", "one", k.f.now.addSecs(1)});
        k.f.threads.openFromHistory(old);
        k.f.now = k.f.now.addSecs(60);
        k.f.orchestrator.retry();
        QCOMPARE(k.f.display.streamScreenshot->imageData, "picture");
        k.answer("two");
        for (const auto &version : k.current().turns.last().versions())
            QCOMPARE(version.screenshot, CaptureSession::TurnScreenshot{0});
    }

    void deletedThreadIsForgotten()
    {
        Fixture k;
        k.f.orchestrator.sendPromptOnly("q");
        k.f.transfer()->finish(failure(QueryError::Kind::HttpError, {}, 500));
        const QUuid id = k.current().id;
        k.f.orchestrator.editLastQuestion();
        k.f.threads.setAside(id);
        k.f.orchestrator.discardAnswers({id});
        k.f.threads.forget(id);
        QVERIFY(!k.f.orchestrator.lastQuestion().question());
        QVERIFY(!k.f.orchestrator.lastQuestion().isEditing());
    }

private:
    using Fixture = KeepingFixture;

    static void ask(Fixture &k, const QString &prompt, const QString &answer = "r")
    {
        k.f.orchestrator.sendPromptOnly(prompt);
        k.answer(answer);
    }
    static QStringList responses(const CaptureSession::Turn &turn)
    {
        QStringList texts;
        for (const auto &version : turn.versions())
            texts << version.response;
        return texts;
    }
    static void verifyVersions(const Fixture &k, const QStringList &expected, qsizetype shown)
    {
        const CaptureSession::Turn &turn = k.current().turns.last();
        QCOMPARE(responses(turn), expected);
        QCOMPARE(turn.shownVersion, shown);
        QCOMPARE(turn.response, expected.at(shown));
    }
    static void verifyStored(const Fixture &k, const QStringList &expected, qsizetype shown)
    {
        const auto stored = k.disk.store.load(k.current().id);
        QVERIFY(stored);
        QCOMPARE(responses(stored->turns.last()), expected);
        QCOMPARE(stored->turns.last().response, expected.at(shown));
    }
};

QUELLORA_TEST(QCoreApplication, TestRetry)
#include "test_retry.moc"
