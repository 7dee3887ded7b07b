#include "overlay/OverlayMirror.h"

#include "history/ThreadController.h"
#include "overlay/OverlayModel.h"
#include "page/ResponseDisplay.h"
#include "panels/BottomPanelsModel.h"
#include "panels/HamburgerMenuModel.h"
#include "query/QueryOrchestrator.h"
#include "query/ServiceMessages.h"

namespace quellora {

namespace {

OverlayModel::SaveState toModelState(SaveState::Kind kind)
{
    switch (kind) {
    case SaveState::Kind::Saving:
        return OverlayModel::SaveState::Saving;
    case SaveState::Kind::Saved:
        return OverlayModel::SaveState::Saved;
    case SaveState::Kind::Failed:
        return OverlayModel::SaveState::Failed;
    case SaveState::Kind::None:
        break;
    }
    return OverlayModel::SaveState::None;
}

} // namespace

OverlayMirror::OverlayMirror(const Collaborators &collaborators) : m_collaborators(collaborators)
{
    connect(&m_collaborators.messages, &ServiceMessages::changed, this,
            &OverlayMirror::refreshMessages);
    connect(&m_collaborators.threads, &ThreadController::sessionChanged, this,
            &OverlayMirror::refreshThread);
    connect(&m_collaborators.threads, &ThreadController::saveStateChanged, this,
            &OverlayMirror::refreshThread);
    connect(&m_collaborators.threads, &ThreadController::stagedScreenshotChanged, this, [this] {
        const auto &staged = m_collaborators.threads.stagedScreenshot();
        m_collaborators.panels.setStagedScreenshotData(staged ? std::optional(staged->imageData)
                                                              : std::nullopt);
    });
    connect(&m_collaborators.orchestrator, &QueryOrchestrator::activityChanged, this,
            &OverlayMirror::refreshActivity);
    connect(&m_collaborators.orchestrator.lastQuestion(), &LastQuestion::changed, this,
            &OverlayMirror::refreshQuestion);
    connect(&m_collaborators.display, &ResponseDisplay::contentChanged, this,
            &OverlayMirror::refreshThread);
    refreshMessages();
    refreshThread();
    refreshActivity();
}

void OverlayMirror::refreshMessages()
{
    m_collaborators.panels.setAdminMessage(m_collaborators.messages.displayedAdminMessage());
    m_collaborators.panels.setInformationalCollapsed(
        m_collaborators.messages.isInformationalCollapsed());
    m_collaborators.panels.setBlocked(m_collaborators.messages.isBlocked());
    m_collaborators.overlay.setSendingBlocked(m_collaborators.messages.isBlocked());
    m_collaborators.overlay.setUsage(m_collaborators.messages.tokenCap() >= 1
                                         ? std::optional(m_collaborators.messages.usagePercent())
                                         : std::nullopt);
    m_collaborators.menu.setUsage(m_collaborators.messages.tokensUsed(),
                                  m_collaborators.messages.tokenCap(),
                                  m_collaborators.messages.capExceeded());
}

void OverlayMirror::refreshThread()
{
    const auto &session = m_collaborators.threads.currentSession();
    const bool isEmpty = !session || (session->turns.isEmpty() && session->notes.isEmpty() &&
                                      session->screenshots.isEmpty());
    // Until the first turn is complete, the pending prompt is the title of a new thread.
    const QString pendingPrompt = m_collaborators.orchestrator.shownPrompt();
    if (session && session->turns.isEmpty() && !session->customTitle && !pendingPrompt.isEmpty())
        m_collaborators.overlay.setTitle(CaptureSession::firstLine(pendingPrompt));
    else
        m_collaborators.overlay.setTitle(
            isEmpty ? QString() : session->customTitle.value_or(session->previewText()));
    const SaveState saved = m_collaborators.threads.saveState();
    m_collaborators.overlay.setSaveState(toModelState(saved.kind), saved.reason);
    m_collaborators.overlay.setThreadCovered(m_collaborators.display.content() ==
                                                 ResponseDisplay::Content::Message &&
                                             (!isEmpty || !pendingPrompt.isEmpty()));
    m_collaborators.overlay.setPageClickable(m_collaborators.display.content() !=
                                             ResponseDisplay::Content::Hint);
    const bool hasAnswer = session && !session->turns.isEmpty();
    m_collaborators.overlay.setHasAnswer(hasAnswer);
    if (hasAnswer)
        m_collaborators.overlay.setVersions(int(session->turns.constLast().shownVersion),
                                            int(session->turns.constLast().versionCount()));
    else
        m_collaborators.overlay.setVersions(0, 1);
    refreshQuestion();
}

void OverlayMirror::refreshQuestion()
{
    const LastQuestion &last = m_collaborators.orchestrator.lastQuestion();
    const auto question = last.question();
    m_collaborators.overlay.setQuestionKnown(question && !last.isEditing());
    m_collaborators.panels.setEditing(last.isEditing(),
                                      last.isEditing() && question && question->screenshot);
}

void OverlayMirror::refreshActivity()
{
    m_collaborators.panels.setCapturing(m_collaborators.orchestrator.isCapturing());
    refreshThread();
    switch (m_collaborators.orchestrator.activity()) {
    case QueryOrchestrator::Activity::Capturing:
        m_collaborators.overlay.setActivity(OverlayModel::Activity::Capturing);
        break;
    case QueryOrchestrator::Activity::Waiting:
        m_collaborators.overlay.setActivity(OverlayModel::Activity::Waiting);
        break;
    case QueryOrchestrator::Activity::Streaming:
        m_collaborators.overlay.setActivity(OverlayModel::Activity::Streaming);
        break;
    case QueryOrchestrator::Activity::Stopped:
        m_collaborators.overlay.setActivity(OverlayModel::Activity::Idle);
        m_collaborators.overlay.showStopped();
        break;
    case QueryOrchestrator::Activity::Idle:
        m_collaborators.overlay.setActivity(OverlayModel::Activity::Idle);
        break;
    }
}

} // namespace quellora
