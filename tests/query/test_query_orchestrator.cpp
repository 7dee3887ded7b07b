#include "OrchestratorFixture.h"
#include "query/ContextPrompt.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>

using namespace quellora;

namespace {

using Fixture = OrchestratorFixture;
using CaptureKind = ScreenshotCapture::CaptureError::Kind;

} // namespace

class TestQueryOrchestrator : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void contextPromptOfEmptyThreadIsPlainText()
    {
        CaptureSession session = CaptureSession::create();
        session.addScreenshot("x", session.createdAt);
        QCOMPARE(contextAugmentedPrompt("Explain", session), "Explain");
    }

    void contextPromptIncludesNotesAndTurns()
    {
        CaptureSession session = CaptureSession::create();
        session.addNote("use metric");
        QCOMPARE(contextAugmentedPrompt("Explain it", session),
                 "Notes:\n- use metric\n\nCurrent message:\nExplain it");
        session.addTurn("What is this?", "A chart.", session.createdAt);
        QCOMPARE(contextAugmentedPrompt("Explain it", session),
                 "Notes:\n- use metric\n\nPrevious conversation:\nUser: What is this?\nAssistant: "
                 "A chart.\n\nCurrent message:\nExplain it");
        session.notes.clear();
        QCOMPARE(contextAugmentedPrompt("E", session),
                 "Previous conversation:\nUser: What is this?\nAssistant: A chart.\n\nCurrent "
                 "message:\nE");
    }

    void captureAndSendRoundTrip()
    {
        Fixture f;
        f.model = "model-a";
        f.defaults.setString("userPrompt", "What now?");
        f.orchestrator.triggerCaptureAndSend();
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Capturing);
        QCOMPARE(f.log.lines, QStringList{prefix + "Capture & Send triggered"});
        f.now = f.now.addMSecs(250);
        f.captureReturns(ScreenshotCapture::Result{"jpeg", 99});
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Waiting);
        QCOMPARE(f.display.calls, (QStringList{"streamStart", "showWindow"}));

        QCOMPARE(f.service.requests.size(), 1);
        const QueryRequest request = f.service.requests.first();
        QCOMPARE(request.prompt, "What now?");
        QCOMPARE(request.imageBase64, QByteArray("jpeg").toBase64());
        QCOMPARE(request.model, "model-a");
        QCOMPARE(request.sessionToken, "token");
        QCOMPARE(f.display.streamPrompt, "What now?");
        QCOMPARE(f.orchestrator.shownPrompt(), "What now?");
        QCOMPARE(f.display.streamScreenshot->imageData, "jpeg");
        QCOMPARE(f.display.streamSession->screenshots.size(), 1);

        f.now = f.now.addMSecs(250);
        f.transfer()->answer("Hel");
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Streaming);
        f.now = f.now.addMSecs(500);
        f.transfer()->answer("lo");
        QCOMPARE(f.display.streamed, "Hello");
        f.display.calls.clear();
        f.transfer()->finish(done());

        QCOMPARE(f.display.calls, (QStringList{"streamEnd", "renderThread"}));
        const CaptureSession thread = *f.threads.currentSession();
        QCOMPARE(thread.turns.size(), 1);
        QCOMPARE(thread.turns.first().prompt, "What now?");
        QCOMPARE(thread.turns.first().response, "Hello");
        QCOMPARE(f.display.rendered.last(), thread);
        QCOMPARE(f.orchestrator.shownPrompt(), "");
        QCOMPARE(f.defaults.stringValue("userPrompt"), "");
        QCOMPARE(f.messages.tokensUsed(), 200);
        QCOMPARE(f.messages.tokenCap(), 1000);
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Idle);

        QCOMPARE(f.service.telemetryToken, "token");
        QCOMPARE(f.service.telemetry.first(), (QJsonObject{{"model_used", "model-a"},
                                                           {"used_fallback", false},
                                                           {"prompt_chars", 9},
                                                           {"has_image", true},
                                                           {"response_time_ms", 1000.0},
                                                           {"time_to_first_token_ms", 500.0},
                                                           {"input_tokens", 0},
                                                           {"output_tokens", 0},
                                                           {"total_tokens", 100},
                                                           {"tokens_used_before", 100},
                                                           {"tokens_remaining_after", 800},
                                                           {"token_cap", 1000},
                                                           {"over_cap", false},
                                                           {"app_version", "1.0.0"},
                                                           {"platform", "mac"}}));
    }

    void aPromptOfItsOwnLeavesTheBox()
    {
        Fixture f;
        f.defaults.setString("userPrompt", "Typed");
        f.orchestrator.captureAndSendPrompt("Explain it.");
        QCOMPARE(f.log.lines, QStringList{prefix + "Capture & Send triggered"});
        f.captureReturns(ScreenshotCapture::Result{"jpeg", 99});
        QCOMPARE(f.service.requests.first().prompt, "Explain it.");
        QCOMPARE(f.service.requests.first().imageBase64, QByteArray("jpeg").toBase64());
        f.transfer()->answer("Hello");
        f.transfer()->finish(done());
        QCOMPARE(f.threads.currentSession()->turns.first().prompt, "Explain it.");
        QCOMPARE(f.defaults.stringValue("userPrompt"), "Typed");
        // The next one without is the box's again.
        f.captureAndSend();
        QVERIFY(f.service.requests.last().prompt.endsWith("Current message:\nTyped"));
        f.transfer()->finish(done());
        QCOMPARE(f.defaults.stringValue("userPrompt"), "");
    }

    void emptyPromptSendsDefault()
    {
        Fixture f;
        f.captureAndSend();
        QCOMPARE(f.service.requests.first().prompt, "server prompt");
        QVERIFY(!f.service.requests.first().model);
        f.transfer()->finish(done());
        QCOMPARE(f.service.telemetry.first()["model_used"].toString(), "unknown");
        QCOMPARE(f.threads.currentSession()->turns.first().prompt, "server prompt");
    }

    void secondTurnSendsContextAndStoresPlainPrompt()
    {
        Fixture f;
        f.captureAndSend();
        f.transfer()->answer("first");
        f.transfer()->finish(done());
        f.orchestrator.sendPromptOnly("And?");
        QCOMPARE(f.service.requests.last().prompt,
                 "Previous conversation:\nUser: server prompt\nAssistant: first\n\nCurrent "
                 "message:\nAnd?");
        QVERIFY(!f.service.requests.last().imageBase64);
        f.transfer()->finish(done());
        QCOMPARE(f.threads.currentSession()->turns.at(1).prompt, "And?");
    }

    void captureAndSendUnstagesEarlierScreenshot()
    {
        Fixture f;
        f.orchestrator.captureNoSend();
        QVERIFY(f.log.contains(prefix + "Capture (no send) triggered"));
        f.captureReturns(ScreenshotCapture::Result{"staged", 1});
        QVERIFY(f.threads.hasAttachedScreenshot());
        QVERIFY(f.service.requests.isEmpty());
        f.captureAndSend("fresh");
        QCOMPARE(f.service.requests.first().imageBase64, QByteArray("fresh").toBase64());
        QVERIFY(!f.threads.hasAttachedScreenshot());
        QCOMPARE(f.threads.currentSession()->screenshots.size(), 2);
    }

    void stagedScreenshotIsConsumedByFailedSend()
    {
        Fixture f;
        f.orchestrator.captureNoSend();
        f.captureReturns(ScreenshotCapture::Result{"staged", 1});
        f.orchestrator.sendPromptOnly("text");
        QCOMPARE(f.service.requests.first().imageBase64, QByteArray("staged").toBase64());
        QCOMPARE(f.display.streamScreenshot->imageData, "staged");
        QVERIFY(!f.threads.hasAttachedScreenshot());
        f.transfer()->finish(failure(QueryError::Kind::HttpError, {}, 500));
        QVERIFY(!f.threads.hasAttachedScreenshot());
    }

    void captureFailures_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("detail");
        QTest::addColumn<QString>("description");
        QTest::newRow("launch") << int(CaptureKind::ProcessLaunchFailed) << "no such file"
                                << "Could not launch screencapture: no such file";
        QTest::newRow("exit") << int(CaptureKind::NonZeroExit) << ""
                              << "screencapture exited with status 1";
        QTest::newRow("decode") << int(CaptureKind::ImageDecodeFailed) << ""
                                << "Could not decode captured screenshot";
        QTest::newRow("encode") << int(CaptureKind::JpegEncodeFailed) << ""
                                << "Could not encode screenshot as JPEG";
        QTest::newRow("file") << int(CaptureKind::FileRead) << "No such file or directory"
                              << "No such file or directory";
    }
    void captureFailures()
    {
        QFETCH(int, kind);
        QFETCH(QString, detail);
        QFETCH(QString, description);
        for (const bool send : {true, false}) {
            Fixture f;
            if (send)
                f.orchestrator.triggerCaptureAndSend();
            else
                f.orchestrator.captureNoSend();
            f.captureReturns(captureFailure(static_cast<CaptureKind>(kind), detail, 1));
            QCOMPARE(f.display.pages,
                     QStringList{"**Capture Error:**\n```\n" + description + "\n```"});
            QCOMPARE(f.display.calls, (QStringList{"loadContent", "showWindow"}));
            QVERIFY(f.log.contains(prefix +
                                   (send ? "ERROR: Screenshot capture failed: "
                                         : "ERROR: Capture (no send) failed: ") +
                                   description));
            QVERIFY(f.service.requests.isEmpty());
            QVERIFY(!f.threads.currentSession());
            QVERIFY(!f.orchestrator.isCapturing());
        }
    }

    void protectedContentShowsCard()
    {
        for (const bool send : {true, false}) {
            Fixture f;
            if (send)
                f.orchestrator.triggerCaptureAndSend();
            else
                f.orchestrator.captureNoSend();
            f.captureReturns(captureFailure(CaptureKind::ProtectedContent));
            QCOMPARE(f.messages.currentAdminMessage()->id, "local_protected_content");
            QVERIFY(f.display.pages.isEmpty());
            QVERIFY(f.log.contains(
                prefix + (send ? "Capture & Send" : "Capture (no send)") +
                QString::fromUtf8(" aborted — near-black frame (protected content suspected)")));
        }
    }

    void blockedActionsAreLogged()
    {
        Fixture f;
        AdminMessagePayload block;
        block.id = "b";
        block.type = "BLOCKING";
        f.messages.setCurrentAdminMessage(block);
        f.orchestrator.triggerCaptureAndSend();
        f.orchestrator.sendPromptOnly("x");
        QCOMPARE(
            f.log.lines,
            (QStringList{prefix + QString::fromUtf8("Capture & Send blocked — isBlocked is true"),
                         prefix + QString::fromUtf8("Send blocked — isBlocked is true")}));
        QVERIFY(f.service.requests.isEmpty());
        // Capturing without sending does not need the backend.
        f.orchestrator.captureNoSend();
        QVERIFY(f.orchestrator.isCapturing());
    }

    void exhaustedCreditsPreBlockQueries()
    {
        Fixture f;
        f.messages.updateUsage(1000, 1000);
        f.orchestrator.triggerCaptureAndSend();
        f.orchestrator.sendPromptOnly("x");
        QVERIFY(!f.orchestrator.isCapturing());
        QVERIFY(f.service.requests.isEmpty());
        QCOMPARE(f.messages.currentAdminMessage()->id, "local_credits_exhausted");
    }

    void targetIsPassedOnAndLogged_data()
    {
        QTest::addColumn<CaptureTarget>("target");
        QTest::addColumn<QString>("action");
        QTest::newRow("screen") << CaptureTarget::Screen << "Capture & Send";
        QTest::newRow("window") << CaptureTarget::FrontWindow << "Capture window & Send";
        QTest::newRow("region") << CaptureTarget::Region << "Capture region & Send";
        QTest::newRow("last region") << CaptureTarget::LastRegion << "Capture last region & Send";
    }
    void targetIsPassedOnAndLogged()
    {
        QFETCH(CaptureTarget, target);
        QFETCH(QString, action);
        Fixture f;
        f.orchestrator.triggerCaptureAndSend(target);
        QCOMPARE(f.targets, QList<CaptureTarget>{target});
        QCOMPARE(f.log.lines, QStringList{prefix + action + " triggered"});
        f.captureReturns(ScreenshotCapture::Result{"jpeg", 99});
        QCOMPARE(f.service.requests.first().imageBase64, QByteArray("jpeg").toBase64());
        QCOMPARE(f.threads.currentSession()->screenshots.first().imageData, "jpeg");

        f.desktop.setLocked(true);
        f.log.clear();
        f.orchestrator.triggerCaptureAndSend(target);
        QCOMPARE(f.log.lines, QStringList{prefix + action +
                                          QString::fromUtf8(" ignored — the session is locked")});
        QCOMPARE(f.targets.size(), 1);
    }

    void timeOfChoiceDoesNotCount_data()
    {
        QTest::addColumn<CaptureTarget>("target");
        QTest::addColumn<double>("milliseconds");
        QTest::newRow("window") << CaptureTarget::FrontWindow << 9000.0;
        QTest::newRow("region") << CaptureTarget::Region << 1000.0;
        QTest::newRow("last region") << CaptureTarget::LastRegion << 1000.0;
    }
    void timeOfChoiceDoesNotCount()
    {
        QFETCH(CaptureTarget, target);
        QFETCH(double, milliseconds);
        Fixture f;
        f.orchestrator.triggerCaptureAndSend(target);
        f.now = f.now.addSecs(8);
        f.captureReturns(ScreenshotCapture::Result{"jpeg", 99});
        f.now = f.now.addSecs(1);
        f.transfer()->answer("x");
        f.transfer()->finish(done());
        QCOMPARE(f.service.telemetry.first().value("response_time_ms").toDouble(), milliseconds);
    }

    void dismissedChoiceShowsNothing()
    {
        Fixture f;
        f.orchestrator.triggerCaptureAndSend(CaptureTarget::Region);
        f.captureReturns(captureFailure(CaptureKind::Dismissed));
        QVERIFY(f.display.calls.isEmpty());
        QVERIFY(f.display.pages.isEmpty());
        QVERIFY(f.service.requests.isEmpty());
        QVERIFY(!f.threads.currentSession());
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Idle);
        QCOMPARE(f.log.lines.last(),
                 prefix + QString::fromUtf8("Capture region & Send given up — nothing was chosen"));
    }

    void choiceLeavesThePanelAsItIs()
    {
        Fixture f;
        f.orchestrator.triggerCaptureAndSend(CaptureTarget::Region);
        QVERIFY(!f.orchestrator.isCapturing());
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Idle);
        f.captureReturns(ScreenshotCapture::Result{"jpeg", 99});
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Waiting);
    }

    void lockedSessionEndsChoice()
    {
        Fixture f;
        f.capturePromise.start();
        f.orchestrator.triggerCaptureAndSend(CaptureTarget::Region);
        QVERIFY(!f.capturePromise.isCanceled());
        f.desktop.setLocked(true);
        QVERIFY(f.capturePromise.isCanceled());
        QVERIFY(f.log.contains(prefix +
                               QString::fromUtf8("Capture discarded — the session was locked")));
        f.capturePromise.finish();
    }

    void regionForLaterIsStaged()
    {
        Fixture f;
        f.settings.setLookBeforeSending(true);
        f.orchestrator.triggerCaptureAndSend(CaptureTarget::Region);
        f.captureReturns(ScreenshotCapture::Result{"part", 1, true});
        QVERIFY(f.service.requests.isEmpty());
        QCOMPARE(f.threads.stagedScreenshot()->imageData, "part");
        // The panel shows that it is attached.
        QCOMPARE(f.display.calls, QStringList{"showWindow"});
    }

    void lookComesBeforeSending()
    {
        Fixture f;
        f.settings.setLookBeforeSending(true);
        f.defaults.setString("userPrompt", "What?");
        QSignalSpy looks(&f.orchestrator, &QueryOrchestrator::lookRequested);
        QSignalSpy shown(&f.orchestrator, &QueryOrchestrator::lookShown);
        QSignalSpy succeeded(&f.orchestrator, &QueryOrchestrator::captureSucceeded);
        f.captureAndSend("jpeg");
        QCOMPARE(looks.takeFirst().first().toByteArray(), "jpeg");
        QCOMPARE(shown.size(), 1);
        QCOMPARE(succeeded.size(), 1);
        QCOMPARE(f.display.calls, QStringList{"showWindow"});
        QVERIFY(f.service.requests.isEmpty());
        QVERIFY(!f.threads.currentSession());
        QVERIFY(!f.orchestrator.isCapturing());

        // The time of the look is none of the answer's.
        f.now = f.now.addSecs(30);
        f.orchestrator.sendLookedAt();
        QCOMPARE(looks.takeFirst().first().toByteArray(), QByteArray());
        QCOMPARE(f.service.requests.first().imageBase64, QByteArray("jpeg").toBase64());
        QCOMPARE(f.service.requests.first().prompt, "What?");
        QCOMPARE(f.threads.currentSession()->screenshots.first().imageData, "jpeg");
        f.now = f.now.addSecs(1);
        f.transfer()->answer("x");
        f.transfer()->finish(done());
        QCOMPARE(f.service.telemetry.first().value("response_time_ms").toDouble(), 1000.0);
        // Once only.
        f.orchestrator.sendLookedAt();
        QCOMPARE(f.service.requests.size(), 1);
        QVERIFY(looks.isEmpty());
    }

    void lookKeepsPromptOfItsOwn()
    {
        Fixture f;
        f.settings.setLookBeforeSending(true);
        f.defaults.setString("userPrompt", "In the box");
        f.orchestrator.captureAndSendPrompt("Explain");
        f.captureReturns(ScreenshotCapture::Result{"jpeg", 1});
        f.orchestrator.sendLookedAt();
        QCOMPARE(f.service.requests.first().prompt, "Explain");
        f.transfer()->finish(done());
        QCOMPARE(f.defaults.stringValue("userPrompt"), "In the box");
    }

    void lookIsDropped()
    {
        Fixture f;
        f.settings.setLookBeforeSending(true);
        QSignalSpy looks(&f.orchestrator, &QueryOrchestrator::lookRequested);
        f.captureAndSend("jpeg");
        f.orchestrator.dropLookedAt();
        QCOMPARE(looks.last().first().toByteArray(), QByteArray());
        QVERIFY(f.log.contains(prefix + "Capture dropped by the user"));
        f.orchestrator.sendLookedAt();
        f.orchestrator.attachLookedAt();
        f.orchestrator.dropLookedAt();
        QVERIFY(f.service.requests.isEmpty());
        QVERIFY(!f.threads.hasAttachedScreenshot());
        QVERIFY(!f.threads.currentSession());
        QCOMPARE(looks.size(), 2);
    }

    void lookedAtIsAttached()
    {
        Fixture f;
        f.settings.setLookBeforeSending(true);
        f.captureAndSend("jpeg");
        f.orchestrator.attachLookedAt();
        QVERIFY(f.service.requests.isEmpty());
        QCOMPARE(f.threads.stagedScreenshot()->imageData, "jpeg");
        f.orchestrator.sendLookedAt();
        QVERIFY(f.service.requests.isEmpty());
    }

    void lookIsNotNeededWithoutSending()
    {
        Fixture f;
        f.settings.setLookBeforeSending(true);
        QSignalSpy looks(&f.orchestrator, &QueryOrchestrator::lookRequested);
        f.orchestrator.captureNoSend();
        f.captureReturns(ScreenshotCapture::Result{"jpeg", 1});
        QVERIFY(looks.isEmpty());
        QVERIFY(f.threads.hasAttachedScreenshot());
    }

    void newerCaptureReplacesLook()
    {
        Fixture f;
        f.settings.setLookBeforeSending(true);
        QSignalSpy looks(&f.orchestrator, &QueryOrchestrator::lookRequested);
        f.captureAndSend("old");
        f.captureAndSend("new");
        QCOMPARE(looks.size(), 2);
        f.orchestrator.sendLookedAt();
        QCOMPARE(f.service.requests.size(), 1);
        QCOMPARE(f.service.requests.first().imageBase64, QByteArray("new").toBase64());
    }

    void lookedAtIsKeptIfSendingIsBlocked()
    {
        Fixture f;
        f.settings.setLookBeforeSending(true);
        f.captureAndSend("jpeg");
        QSignalSpy refused(&f.orchestrator, &QueryOrchestrator::refused);
        f.messages.updateUsage(1000, 1000);
        f.orchestrator.sendLookedAt();
        QCOMPARE(refused.size(), 1);
        QVERIFY(f.service.requests.isEmpty());
        QCOMPARE(f.threads.stagedScreenshot()->imageData, "jpeg");
    }

    void endOfSessionDropsLook()
    {
        Fixture f;
        f.settings.setLookBeforeSending(true);
        f.captureAndSend("jpeg");
        f.orchestrator.cancelAll();
        f.orchestrator.sendLookedAt();
        QVERIFY(f.service.requests.isEmpty());
    }

    void missingTokenShowsErrorPage()
    {
        Fixture f;
        f.auth.clearSession();
        f.orchestrator.sendPromptOnly("x");
        QCOMPARE(f.display.pages,
                 QStringList{"**Error:**\n```\nNo session token found. Make sure you are logged "
                             "in.\n```"});
        QVERIFY(
            f.log.contains(prefix + QString::fromUtf8("ERROR: No session token — not logged in")));
        QVERIFY(f.service.requests.isEmpty());
    }

    void errorPages_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("page");
        QTest::newRow("http") << int(QueryError::Kind::HttpError) << ""
                              << "Proxy HTTP 500"
                              << "Proxy request failed: HTTP 500";
        QTest::newRow("network") << int(QueryError::Kind::NetworkError) << "refused"
                                 << "refused"
                                 << "Could not reach backend proxy: refused";
        QTest::newRow("unexpected end") << int(QueryError::Kind::StreamEndedUnexpectedly) << ""
                                        << "Stream ended without a done event"
                                        << "Stream ended unexpectedly";
        QTest::newRow("transport") << int(QueryError::Kind::Transport) << "reset"
                                   << "Unexpected query error: reset"
                                   << "reset";
    }
    void errorPages()
    {
        QFETCH(int, kind);
        QFETCH(QString, message);
        QFETCH(QString, line);
        QFETCH(QString, page);
        Fixture f;
        f.defaults.setString("userPrompt", "kept");
        f.captureAndSend();
        f.transfer()->answer("partial");
        f.display.calls.clear();
        f.transfer()->finish(failure(static_cast<QueryError::Kind>(kind), message, 500));
        QCOMPARE(f.display.pages, QStringList{"**Error:**\n```\n" + page + "\n```"});
        QCOMPARE(f.display.calls, (QStringList{"abandonStream", "loadContent", "showWindow"}));
        QVERIFY(f.log.contains(prefix + "ERROR: " + line));
        const auto turns = f.threads.currentSession()->turns;
        QCOMPARE(turns.size(), 1);
        QCOMPARE(turns.first().prompt, "kept");
        QCOMPARE(turns.first().response, "partial");
        QCOMPARE(f.messages.tokensUsed(), 100);
        QCOMPARE(f.defaults.stringValue("userPrompt"), "kept");
        QVERIFY(f.service.telemetry.isEmpty());
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Idle);
    }

    void failureBeforeFirstChunkAddsNoTurn()
    {
        Fixture f;
        f.captureAndSend();
        f.transfer()->finish(failure(QueryError::Kind::HttpError, {}, 500));
        QCOMPARE(f.display.pages.size(), 1);
        QVERIFY(f.threads.currentSession()->turns.isEmpty());
    }

    void rejectionMidStreamKeepsPartialAnswer()
    {
        for (const auto kind : {QueryError::Kind::RateLimited, QueryError::Kind::CapExceeded,
                                QueryError::Kind::ServerMessage}) {
            Fixture f;
            f.captureAndSend();
            f.transfer()->answer("half");
            f.transfer()->finish(failure(kind));
            QCOMPARE(f.threads.currentSession()->turns.value(0).response, "half");
            QCOMPARE(f.display.rendered.last().turns.value(0).response, "half");
            QVERIFY(f.display.pages.isEmpty());
        }
    }

    void serviceErrorsShowCards()
    {
        Fixture f;
        f.captureAndSend();
        QueryError limited;
        limited.kind = QueryError::Kind::RateLimited;
        limited.resetInSeconds = 42;
        f.transfer()->finish(tl::unexpected(limited));
        QCOMPARE(f.messages.currentAdminMessage()->id, "local_rate_limited");
        QCOMPARE(f.display.calls.last(), "renderThread");

        f.captureAndSend();
        QueryError spent;
        spent.kind = QueryError::Kind::CapExceeded;
        spent.tokensRemaining = -50;
        f.transfer()->finish(tl::unexpected(spent));
        QCOMPARE(f.messages.tokensUsed(), 1050);
        QCOMPARE(f.messages.currentAdminMessage()->id, "local_cap_exceeded");
        QVERIFY(f.service.telemetry.isEmpty());
    }

    void capExceededWithoutRemainingKeepsUsage()
    {
        Fixture f;
        f.captureAndSend();
        f.transfer()->finish(failure(QueryError::Kind::CapExceeded));
        QCOMPARE(f.messages.tokensUsed(), 100);
        QVERIFY(f.messages.capExceeded());
    }

    void serverMessageIsNotShownVerbatim()
    {
        Fixture f;
        f.captureAndSend();
        f.transfer()->finish(failure(QueryError::Kind::ServerMessage, "text of the server"));
        QCOMPARE(f.messages.currentAdminMessage()->id, "local_credits_exhausted");
        QVERIFY(!f.display.pages.join("").contains("text of the server"));
    }

    void threadPerSendStartsNewThreadAtNextSend()
    {
        Fixture f;
        f.settings.setStartNewThreadPerSendEnabled(true);
        f.captureAndSend();
        const QUuid first = f.threads.currentSession()->id;
        f.transfer()->answer("x");
        f.transfer()->finish(done());
        QCOMPARE(f.threads.currentSession()->id, first);
        QCOMPARE(f.display.rendered.last().id, first);
        f.captureAndSend();
        QVERIFY(f.threads.currentSession()->id != first);
        QCOMPARE(f.service.requests.last().prompt, "server prompt");
    }

    void answerExhaustingCreditsIsSavedAndCanBeReshown()
    {
        Fixture f;
        f.settings.setKeepAIHistoryEnabled(true);
        f.orchestrator.sendPromptOnly("last");
        const QUuid thread = f.threads.currentSession()->id;
        f.transfer()->answer("worth it");
        f.transfer()->finish(done(0));
        QCOMPARE(f.display.calls.last(2), (QStringList{"loadContent", "showWindow"}));
        QVERIFY(f.display.pages.last().startsWith("## Out of Credits"));
        QCOMPARE(f.saver.saved.value(thread).turns.value(0).response, "worth it");
        f.orchestrator.showCurrentThread();
        QCOMPARE(f.display.calls.last(), "renderThread");
        QCOMPARE(f.display.rendered.last().turns.value(0).response, "worth it");
    }

    void telemetryReportsOverCap()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("at the cap");
        f.transfer()->finish(done(0));
        QCOMPARE(f.service.telemetry.last().value("over_cap"), QJsonValue(false));
        Fixture over;
        over.orchestrator.sendPromptOnly("beyond");
        over.transfer()->finish(done(-1));
        QCOMPARE(over.service.telemetry.last().value("over_cap"), QJsonValue(true));
        QCOMPARE(over.service.telemetry.last().value("tokens_remaining_after"), QJsonValue(-1));
    }

    void promptIsKeptIfConfigured()
    {
        Fixture f;
        f.settings.setDontClearPromptAfterSendEnabled(true);
        f.defaults.setString("userPrompt", "again");
        f.captureAndSend();
        f.transfer()->finish(done());
        QCOMPARE(f.defaults.stringValue("userPrompt"), "again");
    }

    void emptyAnswerReportsCompletionAsFirstToken()
    {
        Fixture f;
        f.captureAndSend();
        f.now = f.now.addSecs(2);
        f.transfer()->finish(done());
        const QJsonObject record = f.service.telemetry.first();
        QCOMPARE(record["time_to_first_token_ms"].toDouble(), 2000.0);
        QCOMPARE(f.threads.currentSession()->turns.first().response, "");
    }

    void stopKeepsPartialAnswer()
    {
        Fixture f;
        f.defaults.setString("userPrompt", "p");
        f.captureAndSend();
        const QPointer<FakeTransfer> transfer = f.transfer();
        transfer->answer("half");
        f.orchestrator.stop();
        QVERIFY(!transfer || transfer->cancelled);
        QCOMPARE(f.threads.currentSession()->turns.first().response, "half");
        QCOMPARE(f.defaults.stringValue("userPrompt"), "");
        QVERIFY(f.service.telemetry.isEmpty());
        QCOMPARE(f.messages.tokensUsed(), 100);
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Stopped);
        f.orchestrator.stop();
        QCOMPARE(f.threads.currentSession()->turns.size(), 1);
    }

    void stopBeforeFirstChunkKeepsPrompt()
    {
        Fixture f;
        f.defaults.setString("userPrompt", "p");
        f.captureAndSend();
        f.orchestrator.stop();
        QVERIFY(f.threads.currentSession()->turns.isEmpty());
        QCOMPARE(f.defaults.stringValue("userPrompt"), "p");
        QCOMPARE(f.display.calls.last(), "renderThread");
    }

    void stopCancelsCapture()
    {
        Fixture f;
        f.orchestrator.triggerCaptureAndSend();
        QVERIFY(f.orchestrator.isCapturing());
        f.log.clear();
        f.orchestrator.stop();
        QVERIFY(f.capturePromise.isCanceled());
        QVERIFY(!f.orchestrator.isCapturing());
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Stopped);
        QCOMPARE(f.log.lines, QStringList{prefix + "Capture given up by the user"});
        // A late result is ignored.
        f.captureReturns(ScreenshotCapture::Result{"late", 99});
        QVERIFY(!f.threads.currentSession());
        QVERIFY(f.service.requests.isEmpty());
        QCOMPARE(f.log.lines.size(), 1);
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Stopped);

        f.captureAndSend("next");
        QCOMPARE(f.service.requests.size(), 1);
        QCOMPARE(f.service.requests.first().imageBase64, QByteArray("next").toBase64());
    }

    void endOfAnswerIsReported()
    {
        Fixture f;
        QList<bool> ends;
        connect(&f.orchestrator, &QueryOrchestrator::answerEnded, this,
                [&ends](bool isComplete) { ends << isComplete; });
        f.orchestrator.sendPromptOnly("one");
        f.transfer()->answer("all");
        QCOMPARE(ends, QList<bool>());
        f.transfer()->finish(done());
        QCOMPARE(ends, QList<bool>{true});
        f.orchestrator.sendPromptOnly("two");
        f.transfer()->finish(failure(QueryError::Kind::RateLimited));
        QCOMPARE(ends, (QList<bool>{true, false}));
        f.orchestrator.sendPromptOnly("three");
        f.orchestrator.stop();
        f.orchestrator.sendPromptOnly("four");
        f.orchestrator.cancelAll();
        QCOMPARE(ends, (QList<bool>{true, false}));
    }

    void lockedSessionIsNotCaptured()
    {
        Fixture f;
        int captures = 0;
        f.onCapture = [&captures] { ++captures; };
        f.desktop.setLocked(true);
        QSignalSpy refused(&f.orchestrator, &QueryOrchestrator::refused);
        f.orchestrator.triggerCaptureAndSend();
        f.orchestrator.captureNoSend();
        QCOMPARE(captures, 0);
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Idle);
        QCOMPARE(f.log.lines,
                 (QStringList{prefix + "Capture & Send ignored — the session is locked",
                              prefix + "Capture (no send) ignored — the session is locked"}));
        QVERIFY(refused.isEmpty());
        QVERIFY(f.display.calls.isEmpty());

        f.desktop.setLocked(false);
        f.captureAndSend();
        QCOMPARE(captures, 1);
        QCOMPARE(f.service.requests.size(), 1);
    }

    void lockDiscardsCaptures()
    {
        Fixture f;
        f.orchestrator.triggerCaptureAndSend();
        f.log.clear();
        f.desktop.setLocked(true);
        QVERIFY(f.capturePromise.isCanceled());
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Idle);
        QCOMPARE(f.log.lines, QStringList{prefix + "Capture discarded — the session was locked"});
        f.captureReturns(ScreenshotCapture::Result{"late", 99});
        QVERIFY(!f.threads.currentSession());
        QVERIFY(f.service.requests.isEmpty());
    }

    void lockDiscardsPendingCaptureResult()
    {
        Fixture f;
        f.orchestrator.captureNoSend();
        f.capturePromise.start();
        f.capturePromise.addResult(ScreenshotCapture::Result{"late", 99});
        f.capturePromise.finish();
        f.desktop.setLocked(true);
        QCoreApplication::processEvents();
        QVERIFY(!f.threads.stagedScreenshot());
    }

    void lockLeavesAnswersAlone()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.log.clear();
        f.desktop.setLocked(true);
        QCOMPARE(f.log.lines, QStringList());
        f.transfer()->answer("all");
        f.transfer()->finish(done());
        QCOMPARE(f.threads.currentSession()->turns.first().response, "all");
    }

    void stopDiscardsPendingCaptureResult()
    {
        Fixture f;
        f.orchestrator.captureNoSend();
        f.capturePromise.start();
        f.capturePromise.addResult(ScreenshotCapture::Result{"late", 99});
        f.capturePromise.finish();
        f.orchestrator.stop();
        QCoreApplication::processEvents();
        QVERIFY(!f.threads.stagedScreenshot());
        QVERIFY(!f.orchestrator.isCapturing());
    }

    void stopCancelsAnswerBeforeCapture()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        f.transfer()->answer("half");
        f.orchestrator.captureNoSend();
        f.orchestrator.stop();
        QVERIFY(!f.capturePromise.isCanceled());
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Capturing);
        f.orchestrator.stop();
        QVERIFY(f.capturePromise.isCanceled());
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Stopped);
    }

    void cancelAllCancelsCaptures()
    {
        Fixture f;
        f.orchestrator.triggerCaptureAndSend();
        f.orchestrator.cancelAll();
        QVERIFY(f.capturePromise.isCanceled());
    }

    void everyRejectionEmitsRefused()
    {
        Fixture f;
        QSignalSpy refused(&f.orchestrator, &QueryOrchestrator::refused);
        f.captureAndSend();
        f.transfer()->finish(failure(QueryError::Kind::RateLimited));
        QCOMPARE(refused.size(), 1);
        f.orchestrator.triggerCaptureAndSend();
        f.captureReturns(captureFailure(CaptureKind::ProtectedContent));
        QCOMPARE(refused.size(), 2);
        f.orchestrator.captureNoSend();
        f.captureReturns(captureFailure(CaptureKind::ProtectedContent));
        QCOMPARE(refused.size(), 3);
        f.captureAndSend();
        f.transfer()->finish(failure(QueryError::Kind::ServerMessage));
        QCOMPARE(refused.size(), 4);
        // The credits are now known to be exhausted.
        f.orchestrator.triggerCaptureAndSend();
        QCOMPARE(refused.size(), 5);
        f.messages.updateUsage(1, 1000);
        AdminMessagePayload blocking;
        blocking.id = "b";
        blocking.type = "BLOCKING";
        f.messages.setCurrentAdminMessage(blocking);
        f.orchestrator.triggerCaptureAndSend();
        QCOMPARE(refused.size(), 6);
        QCOMPARE(f.log.lines.last(), prefix + "Capture & Send blocked — isBlocked is true");
    }

    void concurrentAnswersDoNotMix()
    {
        Fixture f;
        f.orchestrator.sendPromptOnly("one");
        const QPointer<FakeTransfer> first = f.service.transfers.at(0);
        first->answer("a1");
        f.orchestrator.sendPromptOnly("two");
        const QPointer<FakeTransfer> second = f.service.transfers.at(1);
        second->answer("b1");
        first->answer("a2");
        second->answer("b2");
        QCOMPARE(f.display.streamed, "b1b2");
        const qsizetype rendered = f.display.rendered.size();
        first->finish(done());
        QCOMPARE(f.display.rendered.size(), rendered);
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Streaming);
        second->finish(done());
        const auto turns = f.threads.currentSession()->turns;
        QCOMPARE(turns.size(), 2);
        QCOMPARE(turns.at(0).response, "a1a2");
        QCOMPARE(turns.at(1).response, "b1b2");
    }

    void answerOfEndedThreadIsNotAddedToNewThread()
    {
        Fixture f;
        f.captureAndSend();
        f.transfer()->answer("late");
        f.threads.startNewThread();
        f.display.rendered.clear();
        f.transfer()->finish(done());
        QVERIFY(f.threads.currentSession()->turns.isEmpty());
        QVERIFY(f.display.rendered.isEmpty());
    }

    void noteRendersThread()
    {
        Fixture f;
        f.orchestrator.addNote(" \n");
        QVERIFY(f.display.calls.isEmpty());
        QVERIFY(!f.threads.currentSession());
        f.orchestrator.addNote("note");
        QCOMPARE(f.display.rendered.last().notes.first().text, "note");
        QVERIFY(f.log.contains(prefix + "Note added to current session"));
        QVERIFY(f.service.requests.isEmpty());
    }

    void cancelAllDoesNotTouchDisplay()
    {
        Fixture f;
        f.captureAndSend();
        const QPointer<FakeTransfer> transfer = f.transfer();
        f.display.calls.clear();
        f.orchestrator.cancelAll();
        QVERIFY(!transfer || transfer->cancelled);
        QVERIFY(f.display.calls.isEmpty());
        QVERIFY(f.threads.currentSession()->turns.isEmpty());
    }

    void cancelAllSavesPartialAnswers()
    {
        Fixture f;
        f.settings.setKeepAIHistoryEnabled(true);
        f.defaults.setString("userPrompt", "one");
        f.orchestrator.sendPromptOnly("one");
        const QUuid first = f.threads.currentSession()->id;
        f.service.transfers.at(0)->answer("ha");
        f.service.transfers.at(0)->answer("lf");
        f.threads.startNewThread();
        f.orchestrator.sendPromptOnly("two");
        const QUuid second = f.threads.currentSession()->id;
        f.service.transfers.at(1)->answer("start");
        f.orchestrator.sendPromptOnly("three");
        f.display.calls.clear();
        f.auth.clearSession();
        f.orchestrator.cancelAll();
        f.orchestrator.cancelAll();
        QCOMPARE(f.saver.saved.value(first).turns.size(), 1);
        QCOMPARE(f.saver.saved.value(first).turns.first().prompt, "one");
        QCOMPARE(f.saver.saved.value(first).turns.first().response, "half");
        // The third query had not received any text yet.
        QCOMPARE(f.saver.saved.value(second).turns.size(), 1);
        QCOMPARE(f.saver.saved.value(second).turns.first().response, "start");
        QCOMPARE(f.defaults.stringValue("userPrompt"), "");
        QVERIFY(f.service.telemetry.isEmpty());
        QVERIFY(f.display.calls.isEmpty());
    }

    void captureResultAfterCancelAllIsIgnored()
    {
        for (const bool send : {true, false}) {
            for (const bool succeeds : {true, false}) {
                Fixture f;
                if (send)
                    f.orchestrator.triggerCaptureAndSend();
                else
                    f.orchestrator.captureNoSend();
                f.orchestrator.cancelAll();
                f.auth.clearSession();
                f.log.clear();
                f.captureReturns(
                    succeeds ? ScreenshotCapture::Outcome(ScreenshotCapture::Result{"jpeg", 99})
                             : captureFailure(CaptureKind::FileRead));
                QVERIFY(!f.orchestrator.isCapturing());
                QCOMPARE(f.log.lines, QStringList());
                QVERIFY(f.display.calls.isEmpty());
                QVERIFY(f.service.requests.isEmpty());
                QVERIFY(!f.threads.currentSession());
            }
        }
    }
};

QUELLORA_TEST(QCoreApplication, TestQueryOrchestrator)
#include "test_query_orchestrator.moc"
