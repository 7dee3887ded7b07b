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

OverlayModel::SaveState shown(SaveState::Kind kind)
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

OverlayMirror::OverlayMirror(const Collaborators &collaborators) : m_with(collaborators)
{
    connect(&m_with.messages, &ServiceMessages::changed, this, &OverlayMirror::refreshMessages);
    connect(&m_with.threads, &ThreadController::sessionChanged, this,
            &OverlayMirror::refreshThread);
    connect(&m_with.threads, &ThreadController::saveStateChanged, this,
            &OverlayMirror::refreshThread);
    connect(&m_with.threads, &ThreadController::stagedScreenshotChanged, this, [this] {
        const auto &staged = m_with.threads.stagedScreenshot();
        m_with.panels.setStagedScreenshotData(staged ? std::optional(staged->imageData)
                                                     : std::nullopt);
    });
    connect(&m_with.orchestrator, &QueryOrchestrator::activityChanged, this,
            &OverlayMirror::refreshActivity);
    connect(&m_with.display, &ResponseDisplay::contentChanged, this, &OverlayMirror::refreshThread);
    refreshMessages();
    refreshThread();
    refreshActivity();
}

void OverlayMirror::refreshMessages()
{
    m_with.panels.setAdminMessage(m_with.messages.displayedAdminMessage());
    m_with.panels.setInformationalCollapsed(m_with.messages.isInformationalCollapsed());
    m_with.panels.setBlocked(m_with.messages.isBlocked());
    m_with.overlay.setSendingBlocked(m_with.messages.isBlocked());
    m_with.overlay.setUsage(m_with.messages.tokenCap() >= 1
                                ? std::optional(m_with.messages.usagePercent())
                                : std::nullopt);
    m_with.menu.setUsage(m_with.messages.tokensUsed(), m_with.messages.tokenCap(),
                         m_with.messages.capExceeded());
}

void OverlayMirror::refreshThread()
{
    const auto &session = m_with.threads.currentSession();
    const bool isEmpty = !session || (session->turns.isEmpty() && session->notes.isEmpty() &&
                                      session->screenshots.isEmpty());
    // The first question names its thread while its answer is still under way.
    const QString asked = m_with.orchestrator.shownPrompt();
    if (session && session->turns.isEmpty() && !session->customTitle && !asked.isEmpty())
        m_with.overlay.setTitle(CaptureSession::firstLine(asked));
    else
        m_with.overlay.setTitle(isEmpty ? QString()
                                        : session->customTitle.value_or(session->previewText()));
    const SaveState saved = m_with.threads.saveState();
    m_with.overlay.setSaveState(shown(saved.kind), saved.reason);
    m_with.overlay.setThreadCovered(m_with.display.content() == ResponseDisplay::Content::Message &&
                                    (!isEmpty || !asked.isEmpty()));
    m_with.overlay.setHasAnswer(session && !session->turns.isEmpty());
}

void OverlayMirror::refreshActivity()
{
    m_with.panels.setCapturing(m_with.orchestrator.isCapturing());
    refreshThread();
    switch (m_with.orchestrator.activity()) {
    case QueryOrchestrator::Activity::Capturing:
        m_with.overlay.setActivity(OverlayModel::Activity::Capturing);
        break;
    case QueryOrchestrator::Activity::Waiting:
        m_with.overlay.setActivity(OverlayModel::Activity::Waiting);
        break;
    case QueryOrchestrator::Activity::Streaming:
        m_with.overlay.setActivity(OverlayModel::Activity::Streaming);
        break;
    case QueryOrchestrator::Activity::Stopped:
        m_with.overlay.setActivity(OverlayModel::Activity::Idle);
        m_with.overlay.showStopped();
        break;
    case QueryOrchestrator::Activity::Idle:
        m_with.overlay.setActivity(OverlayModel::Activity::Idle);
        break;
    }
}

} // namespace quellora
