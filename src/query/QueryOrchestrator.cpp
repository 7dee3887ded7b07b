#include "query/QueryOrchestrator.h"

#include "backend/SessionManager.h"
#include "base/Log.h"
#include "base/Settings.h"
#include "base/Text.h"
#include "base/WhenFinished.h"
#include "history/ThreadController.h"
#include "platform/DesktopSession.h"
#include "query/ActiveQuery.h"
#include "query/AnswerDisplay.h"
#include "query/ContextPrompt.h"
#include "query/FailureReport.h"
#include "query/PromptConfig.h"
#include "query/ProxyQueryService.h"
#include "query/ServiceMessages.h"

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

void log(const QString &message)
{
    Log::event(QStringLiteral("[OverlayWindowController] ") + message);
}

/// What is captured, for the log; empty for the screen.
QString targetText(CaptureTarget target)
{
    switch (target) {
    case CaptureTarget::Screen:
        break;
    case CaptureTarget::FrontWindow:
        return QStringLiteral(" window");
    case CaptureTarget::Region:
        return QStringLiteral(" region");
    case CaptureTarget::LastRegion:
        return QStringLiteral(" last region");
    }
    return {};
}

/// Whether the user may take time to choose what is captured.
bool isChosen(CaptureTarget target)
{
    return target == CaptureTarget::Region || target == CaptureTarget::LastRegion;
}

} // namespace

QueryOrchestrator::QueryOrchestrator(Collaborators collaborators, QObject *parent)
    : QObject(parent)
    , m_collaborators(std::move(collaborators))
    , m_lastQuestion(m_collaborators.threads, m_collaborators.settings)
{
    connect(&m_collaborators.threads, &ThreadController::sessionChanged, this,
            &QueryOrchestrator::currentThreadChanged);
    connect(&m_collaborators.messages, &ServiceMessages::aboutToShowPage, this,
            &QueryOrchestrator::leavePage);
    connect(&m_collaborators.desktop, &DesktopSession::lockedChanged, this,
            &QueryOrchestrator::lockedChanged);
}

QueryOrchestrator::~QueryOrchestrator()
{
    cancelAll();
}

QueryOrchestrator::Activity QueryOrchestrator::activity() const
{
    if (m_shownQuery)
        return m_shownQuery->firstToken ? Activity::Streaming : Activity::Waiting;
    if (isCapturing())
        return Activity::Capturing;
    return m_stopped ? Activity::Stopped : Activity::Idle;
}

QString QueryOrchestrator::shownPrompt() const
{
    return m_shownQuery ? m_shownQuery->turnPrompt : QString();
}

void QueryOrchestrator::triggerCaptureAndSend(CaptureTarget target)
{
    startCaptureAndSend(target, std::nullopt);
}

void QueryOrchestrator::captureAndSendPrompt(const QString &prompt)
{
    startCaptureAndSend(CaptureTarget::Screen, prompt);
}

void QueryOrchestrator::startCaptureAndSend(CaptureTarget target,
                                            const std::optional<QString> &ownPrompt)
{
    const QString action =
        QStringLiteral("Capture") + targetText(target) + QStringLiteral(" & Send");
    if (isCaptureLocked(action) || isRefused(action))
        return;
    log(action + QStringLiteral(" triggered"));
    const QDateTime queryStart = m_collaborators.clock();
    startCapture(target, [this, action, target, queryStart, ownPrompt](const auto &outcome) {
        // The time in which the user chooses is none of the answer's.
        captureAndSendFinished(outcome, action,
                               isChosen(target) ? m_collaborators.clock() : queryStart, ownPrompt);
    });
}

bool QueryOrchestrator::isRefused(const QString &action)
{
    if (m_collaborators.messages.blockIfKnownOverCap()) {
        Q_EMIT refused();
        return true;
    }
    if (m_collaborators.messages.isBlocked()) {
        log(action + QStringLiteral(" blocked — isBlocked is true"));
        Q_EMIT refused();
        return true;
    }
    return false;
}

bool QueryOrchestrator::isCaptureLocked(const QString &action) const
{
    if (!m_collaborators.desktop.isLocked())
        return false;
    log(action + QStringLiteral(" ignored — the session is locked"));
    return true;
}

void QueryOrchestrator::lockedChanged(bool isLocked)
{
    if (!isLocked || (m_captures.isEmpty() && m_choices.isEmpty()))
        return;
    cancelCaptures();
    log(QStringLiteral("Capture discarded — the session was locked"));
    Q_EMIT activityChanged();
}

void QueryOrchestrator::captureNoSend()
{
    if (isCaptureLocked(QStringLiteral("Capture (no send)")))
        return;
    log(QStringLiteral("Capture (no send) triggered"));
    startCapture(CaptureTarget::Screen, [this](const ScreenshotCapture::Outcome &outcome) {
        captureNoSendFinished(outcome);
    });
}

void QueryOrchestrator::startCapture(CaptureTarget target,
                                     std::function<void(const ScreenshotCapture::Outcome &)> done)
{
    const quint64 number = ++m_lastCapture;
    const QFuture<ScreenshotCapture::Outcome> capture = m_collaborators.capture(target);
    Captures &running = isChosen(target) ? m_choices : m_captures;
    running.insert(number, capture);
    m_stopped = false;
    Q_EMIT activityChanged();
    whenFinished(capture, this,
                 [this, number, &running,
                  done = std::move(done)](const ScreenshotCapture::Outcome &outcome) {
                     running.remove(number);
                     if (!m_isShutDown)
                         done(outcome);
                     Q_EMIT activityChanged();
                 });
}

void QueryOrchestrator::cancelCaptures()
{
    for (Captures *running : {&m_choices, &m_captures}) {
        const Captures captures = std::exchange(*running, {});
        for (QFuture<ScreenshotCapture::Outcome> capture : captures)
            capture.cancel();
    }
}

void QueryOrchestrator::captureAndSendFinished(const ScreenshotCapture::Outcome &outcome,
                                               const QString &action, const QDateTime &queryStart,
                                               const std::optional<QString> &ownPrompt)
{
    if (!outcome) {
        captureFailed(outcome.error(), action, QStringLiteral("Screenshot capture"));
        return;
    }
    if (outcome->isForLater) {
        stageCapture(outcome->jpegData);
        m_collaborators.display.showWindow();
        return;
    }
    if (!m_collaborators.settings.lookBeforeSending()) {
        sendCapture(outcome->jpegData, queryStart, ownPrompt);
        return;
    }
    m_lookedAt = outcome->jpegData;
    m_lookedAtPrompt = ownPrompt;
    Q_EMIT captureSucceeded();
    Q_EMIT lookRequested(m_lookedAt);
    m_collaborators.display.showWindow();
    Q_EMIT lookShown();
}

QByteArray QueryOrchestrator::takeLookedAt()
{
    const QByteArray jpeg = std::exchange(m_lookedAt, QByteArray());
    if (!jpeg.isEmpty())
        Q_EMIT lookRequested({});
    return jpeg;
}

void QueryOrchestrator::sendLookedAt()
{
    const QByteArray jpeg = takeLookedAt();
    if (jpeg.isEmpty())
        return;
    // Refused meanwhile: the picture is not lost.
    if (isRefused(QStringLiteral("Send of the capture")))
        stageCapture(jpeg);
    else
        sendCapture(jpeg, m_collaborators.clock(), m_lookedAtPrompt);
}

void QueryOrchestrator::attachLookedAt()
{
    if (const QByteArray jpeg = takeLookedAt(); !jpeg.isEmpty())
        stageCapture(jpeg);
}

void QueryOrchestrator::dropLookedAt()
{
    if (!takeLookedAt().isEmpty())
        log(QStringLiteral("Capture dropped by the user"));
}

void QueryOrchestrator::sendCapture(const QByteArray &jpeg, const QDateTime &queryStart,
                                    const std::optional<QString> &ownPrompt)
{
    const QString prompt = ownPrompt
                               ? *ownPrompt
                               : PromptConfig::current(m_collaborators.settings.userPrompt(),
                                                       m_collaborators.session.currentConfig());
    // A staged screenshot is not sent with this query, but stays in its thread.
    m_collaborators.threads.clearStagedScreenshot();
    // A prompt of its own is a new question.
    const auto edited = ownPrompt ? std::nullopt : m_lastQuestion.takeEdited();
    const QUuid replaced = edited ? edited->turnId : QUuid();
    CaptureSession session = edited ? m_collaborators.threads.threadForRetry()
                                    : m_collaborators.threads.threadForQuery();
    const QString apiPrompt = contextAugmentedPrompt(prompt, session, replaced);
    session.addScreenshot(jpeg, m_collaborators.clock(), m_collaborators.clock());
    m_collaborators.threads.setCurrentSession(session);
    Q_EMIT captureSucceeded();
    runQuery(apiPrompt, {session.id, prompt, session.screenshots.constLast(), replaced}, queryStart,
             !edited && !ownPrompt);
}

void QueryOrchestrator::captureNoSendFinished(const ScreenshotCapture::Outcome &outcome)
{
    if (!outcome) {
        captureFailed(outcome.error(), QStringLiteral("Capture (no send)"),
                      QStringLiteral("Capture (no send)"));
        return;
    }
    stageCapture(outcome->jpegData);
}

void QueryOrchestrator::stageCapture(const QByteArray &jpeg)
{
    m_collaborators.threads.stageScreenshot(jpeg);
    Q_EMIT captureSucceeded();
}

void QueryOrchestrator::captureFailed(const ScreenshotCapture::CaptureError &error,
                                      const QString &action, const QString &step)
{
    if (error.kind == ScreenshotCapture::CaptureError::Kind::Dismissed) {
        log(action + QStringLiteral(" given up — nothing was chosen"));
        return;
    }
    if (error.kind == ScreenshotCapture::CaptureError::Kind::ProtectedContent) {
        log(action + QStringLiteral(" aborted — near-black frame (protected content suspected)"));
        m_collaborators.messages.handleProtectedContentCapture();
        Q_EMIT refused();
        return;
    }
    log(QStringLiteral("ERROR: ") + step + QStringLiteral(" failed: ") + error.description());
    showErrorPage(QStringLiteral("Capture Error"), error.description());
}

void QueryOrchestrator::showErrorPage(const QString &title, const QString &text)
{
    leavePage();
    m_collaborators.display.loadContent(QStringLiteral("**") + title +
                                        QStringLiteral(":**\n```\n") + text +
                                        QStringLiteral("\n```"));
    m_collaborators.display.showWindow();
}

void QueryOrchestrator::sendPromptOnly(const QString &text)
{
    if (m_collaborators.messages.blockIfKnownOverCap())
        return;
    if (m_collaborators.messages.isBlocked()) {
        log(QStringLiteral("Send blocked — isBlocked is true"));
        return;
    }
    log(QStringLiteral("Send button clicked — prompt-only query"));
    if (auto edited = m_lastQuestion.takeEdited()) {
        edited->prompt = text;
        if (const auto &staged = m_collaborators.threads.stagedScreenshot())
            edited->screenshot = staged;
        m_collaborators.threads.clearStagedScreenshot();
        askAgain(*edited, false);
        return;
    }
    const CaptureSession session = m_collaborators.threads.threadForQuery();
    const QString apiPrompt = contextAugmentedPrompt(text, session);
    m_collaborators.threads.setCurrentSession(session);
    const std::optional<CaptureSession::Screenshot> staged =
        m_collaborators.threads.stagedScreenshot();
    m_collaborators.threads.clearStagedScreenshot();
    runQuery(apiPrompt, {session.id, text, staged, {}}, m_collaborators.clock());
}

void QueryOrchestrator::retry()
{
    if (m_shownQuery) {
        log(QStringLiteral("Retry ignored — an answer is under way"));
        return;
    }
    const auto question = m_lastQuestion.question();
    if (!question) {
        log(QStringLiteral("Retry ignored — nothing has been asked"));
        Q_EMIT nothingToRetry();
        return;
    }
    if (m_collaborators.messages.blockIfKnownOverCap()) {
        Q_EMIT refused();
        return;
    }
    if (m_collaborators.messages.isBlocked()) {
        log(QStringLiteral("Retry blocked — isBlocked is true"));
        Q_EMIT refused();
        return;
    }
    log(QStringLiteral("Retry triggered"));
    // A failed question is still in the prompt box, unless the user has written another one.
    askAgain(*question, m_lastQuestion.isUnanswered() && !m_lastQuestion.isEditing() &&
                            m_collaborators.settings.userPrompt() == question->prompt);
}

void QueryOrchestrator::editLastQuestion()
{
    if (!m_shownQuery)
        m_lastQuestion.beginEditing();
}

void QueryOrchestrator::showVersion(const QUuid &turnId, qsizetype position)
{
    if (!m_collaborators.threads.showVersion(turnId, position))
        return;
    // From now on the last question is the one that the version answers.
    m_lastQuestion.forget(m_collaborators.threads.currentSession()->id);
    log(QStringLiteral("Version %1 on show").arg(position + 1));
    showCurrentThread();
}

void QueryOrchestrator::askAgain(const AskedQuestion &question, bool isFromPromptBox)
{
    CaptureSession session = m_collaborators.threads.threadForRetry();
    const QString apiPrompt = contextAugmentedPrompt(question.prompt, session, question.turnId);
    m_collaborators.threads.setCurrentSession(session);
    runQuery(apiPrompt, question, m_collaborators.clock(), isFromPromptBox);
}

void QueryOrchestrator::addNote(const QString &text)
{
    if (!m_collaborators.threads.addNote(text))
        return;
    showCurrentThread();
    log(QStringLiteral("Note added to current session"));
}

void QueryOrchestrator::runQuery(const QString &apiPrompt, const AskedQuestion &question,
                                 const QDateTime &queryStart, bool isFromPromptBox)
{
    const auto token = m_collaborators.session.sessionToken();
    if (!token) {
        m_lastQuestion.setUnanswered(question);
        log(QStringLiteral("ERROR: No session token — not logged in"));
        showErrorPage(QStringLiteral("Error"),
                      QStringLiteral("No session token found. Make sure you are logged in."));
        return;
    }
    auto query = std::make_shared<ActiveQuery>();
    query->number = ++m_queryCount;
    m_lastAsked.insert(question.threadId, query->number);
    query->threadId = question.threadId;
    query->turnPrompt = question.prompt;
    query->promptBoxText = m_collaborators.settings.userPrompt();
    query->isFromPromptBox = isFromPromptBox;
    query->screenshot = question.screenshot;
    query->replacedTurn = question.turnId;
    query->promptCharacters = characterCount(question.prompt);
    query->hasImage = question.screenshot.has_value();
    query->tokensUsedBefore = m_collaborators.messages.tokensUsed();
    query->queryStart = queryStart;
    query->model = m_collaborators.model();
    m_lastQuestion.forget(query->threadId);
    m_collaborators.threads.retain(query->threadId);

    m_stopped = false;
    m_shownQuery = query;
    m_isShownOnPage = true;
    m_queries.append(query);
    m_collaborators.display.handleStreamStart(m_collaborators.threads.currentSession(),
                                              question.prompt, queryStart, question.screenshot,
                                              question.turnId);
    m_collaborators.display.showWindow();
    runQueryOnMain(query, apiPrompt, *token);
    Q_EMIT activityChanged();
}

void QueryOrchestrator::runQueryOnMain(const ActiveQueryPtr &query, const QString &apiPrompt,
                                       const QString &token)
{
    std::optional<QByteArray> imageBase64;
    if (query->screenshot)
        imageBase64 = query->screenshot->imageData.toBase64();
    RunningQuery *transfer =
        m_collaborators.service.query({apiPrompt, imageBase64, query->model, token});
    query->transfer = transfer;
    connect(transfer, &RunningQuery::firstByte, this, [this, query] {
        query->firstToken = m_collaborators.clock();
        Q_EMIT activityChanged();
    });
    connect(transfer, &RunningQuery::chunk, this,
            [this, query](const QString &text) { chunkReceived(query, text); });
    connect(transfer, &RunningQuery::finished, this,
            [this, query](const QueryOutcome &outcome) { queryFinished(query, outcome); });
}

void QueryOrchestrator::chunkReceived(const ActiveQueryPtr &query, const QString &text)
{
    query->answer += text;
    if (query == m_shownQuery && m_isShownOnPage)
        m_collaborators.display.handleStreamChunk(text);
}

void QueryOrchestrator::queryFinished(const ActiveQueryPtr &query, const QueryOutcome &outcome)
{
    if (!m_queries.contains(query))
        return;
    if (outcome)
        querySucceeded(query, *outcome);
    else
        queryFailed(query, outcome.error());
    Q_EMIT activityChanged();
    Q_EMIT answerEnded(outcome.has_value());
}

bool QueryOrchestrator::recordTurn(const ActiveQueryPtr &query, bool isCutOff)
{
    ThreadController &threads = m_collaborators.threads;
    const bool isCurrent =
        query->replacedTurn.isNull()
            ? threads.addTurn(query->threadId, query->turnPrompt, query->answer, query->screenshot)
            : threads.addVersion(query->threadId, query->replacedTurn, query->turnPrompt,
                                 query->answer, query->screenshot, !isCutOff);
    // Keep the shown thread current until the next send: the user may still copy from it or add
    // notes to it.
    if (isCurrent && !m_shownQuery && m_collaborators.settings.startNewThreadPerSendEnabled())
        m_collaborators.threads.endThreadAtNextSend();
    return isCurrent;
}

void QueryOrchestrator::recordFinishedTurn(const ActiveQueryPtr &query)
{
    if (recordTurn(query))
        showCurrentThread();
    clearSentPrompt(query);
}

void QueryOrchestrator::clearSentPrompt(const ActiveQueryPtr &query)
{
    // Keep the box if the user has typed a new prompt.
    if (query->isFromPromptBox && !m_collaborators.settings.dontClearPromptAfterSendEnabled() &&
        m_collaborators.settings.userPrompt() == query->promptBoxText)
        m_collaborators.settings.setUserPrompt(QString());
}

QueryOrchestrator::ActiveQueryPtr QueryOrchestrator::newestQueryOfCurrentThread() const
{
    const auto &session = m_collaborators.threads.currentSession();
    const auto found = std::find_if(m_queries.crbegin(), m_queries.crend(), [&](const auto &query) {
        return session && query->threadId == session->id;
    });
    return found == m_queries.crend() ? ActiveQueryPtr() : *found;
}

void QueryOrchestrator::currentThreadChanged()
{
    const ActiveQueryPtr newest = newestQueryOfCurrentThread();
    if (newest == m_shownQuery)
        return;
    leavePage();
    m_shownQuery = newest;
    Q_EMIT activityChanged();
}

void QueryOrchestrator::leavePage()
{
    if (m_isShownOnPage)
        m_collaborators.display.abandonStream();
    m_isShownOnPage = false;
}

void QueryOrchestrator::removeQuery(const ActiveQueryPtr &query)
{
    m_queries.removeOne(query);
    if (m_shownQuery == query) {
        m_shownQuery = newestQueryOfCurrentThread();
        m_isShownOnPage = false;
    }
}

void QueryOrchestrator::rememberUnanswered(const ActiveQueryPtr &query)
{
    if (m_lastAsked.value(query->threadId) == query->number)
        m_lastQuestion.setUnanswered(
            {query->threadId, query->turnPrompt, query->screenshot, query->replacedTurn});
}

void QueryOrchestrator::querySucceeded(const ActiveQueryPtr &query, const DoneInfo &info)
{
    if (query == m_shownQuery && m_isShownOnPage)
        m_collaborators.display.handleStreamEnd();
    removeQuery(query);
    recordFinishedTurn(query);
    m_collaborators.threads.release(query->threadId);

    const qint64 cap = m_collaborators.messages.tokenCap();
    const qint64 usedAfter = cap - info.tokensRemaining;
    m_collaborators.messages.updateUsage(usedAfter, cap);
    fireTelemetry(query, info, usedAfter);
}

void QueryOrchestrator::queryFailed(const ActiveQueryPtr &query, const QueryError &error)
{
    const bool wasShown = query == m_shownQuery;
    if (wasShown)
        leavePage();
    removeQuery(query);
    // Keep the text received so far. Keep the prompt as well, so that the user can send it again.
    const bool joinedCurrentThread = !query->answer.isEmpty() && recordTurn(query, true);
    if (query->answer.isEmpty() || !query->replacedTurn.isNull())
        rememberUnanswered(query);
    m_collaborators.threads.release(query->threadId);

    const auto report = failureReport(error);
    if (report)
        log(QStringLiteral("ERROR: ") + report->logText);
    if (report && wasShown) {
        showErrorPage(QStringLiteral("Error"), report->pageText);
        return;
    }
    // Rate limits and the like show a card: remove the waiting entry from the page beneath it. A
    // turn added by a query that was not shown is rendered only if the page shows the thread.
    if (wasShown || (joinedCurrentThread && m_isShownOnPage))
        showCurrentThread();
    if (report) {
        Q_EMIT answerLost(report->pageText);
        return;
    }
    ServiceMessages &messages = m_collaborators.messages;
    if (error.kind == QueryError::Kind::RateLimited)
        messages.handleRateLimited(error.resetInSeconds);
    else if (error.kind == QueryError::Kind::ServerMessage)
        messages.handleServerMessage(error.message);
    else
        messages.handleCapExceeded(error.tokensRemaining
                                       ? messages.tokenCap() - *error.tokensRemaining
                                       : messages.tokensUsed(),
                                   messages.tokenCap());
    Q_EMIT refused();
}

void QueryOrchestrator::stop()
{
    if (!m_shownQuery) {
        if (m_captures.isEmpty())
            return;
        cancelCaptures();
        log(QStringLiteral("Capture given up by the user"));
        m_stopped = true;
        Q_EMIT activityChanged();
        return;
    }
    const ActiveQueryPtr query = m_shownQuery;
    if (query->transfer)
        query->transfer->cancel();
    log(QStringLiteral("Answer stopped by the user (%1 chars kept)")
            .arg(characterCount(query->answer)));
    if (query->answer.isEmpty()) {
        leavePage();
        removeQuery(query);
        rememberUnanswered(query);
        showCurrentThread();
    } else {
        if (m_isShownOnPage)
            m_collaborators.display.handleStreamEnd();
        removeQuery(query);
        recordFinishedTurn(query);
    }
    m_collaborators.threads.release(query->threadId);
    m_stopped = true;
    Q_EMIT activityChanged();
}

void QueryOrchestrator::discardAnswers(const QSet<QUuid> &threads)
{
    for (const QUuid &id : threads)
        m_lastQuestion.forget(id);
    const QList<ActiveQueryPtr> queries = m_queries;
    for (const ActiveQueryPtr &query : queries) {
        if (!threads.contains(query->threadId))
            continue;
        if (query->transfer)
            query->transfer->cancel();
        if (query == m_shownQuery)
            leavePage();
        removeQuery(query);
        m_collaborators.threads.release(query->threadId);
        log(QStringLiteral("Answer given up with its thread"));
    }
    Q_EMIT activityChanged();
}

void QueryOrchestrator::cancelAll()
{
    m_isShutDown = true;
    cancelCaptures();
    m_lastQuestion.abandonEditing();
    m_lookedAt.clear();
    const QList<ActiveQueryPtr> queries = std::exchange(m_queries, {});
    m_shownQuery.reset();
    m_isShownOnPage = false;
    for (const ActiveQueryPtr &query : queries) {
        if (query->transfer)
            query->transfer->cancel();
        if (!query->answer.isEmpty()) {
            log(QStringLiteral("Answer cut off by the end of the session (%1 chars kept)")
                    .arg(characterCount(query->answer)));
            recordTurn(query, true);
            clearSentPrompt(query);
        }
        m_collaborators.threads.release(query->threadId);
    }
}

void QueryOrchestrator::showCurrentThread()
{
    const auto &session = m_collaborators.threads.currentSession();
    if (m_shownQuery) {
        m_isShownOnPage = true;
        m_collaborators.display.resumeStream(session, m_shownQuery->turnPrompt,
                                             m_shownQuery->queryStart, m_shownQuery->screenshot,
                                             m_shownQuery->answer, m_shownQuery->replacedTurn);
    } else if (session) {
        m_collaborators.display.renderThread(*session);
    }
}

void QueryOrchestrator::fireTelemetry(const ActiveQueryPtr &query, const DoneInfo &info,
                                      qint64 usedAfter)
{
    if (const auto token = m_collaborators.session.sessionToken())
        m_collaborators.service.sendTelemetry(
            *token, telemetryRecord(*query, info, m_collaborators.clock(), usedAfter,
                                    m_collaborators.messages.tokenCap()));
}

} // namespace quellora
