#include "overlay/OverlayHistory.h"

#include "overlay/FindModel.h"
#include "overlay/NonFocusPanel.h"
#include "overlay/OverlayModel.h"
#include "panels/HamburgerMenuModel.h"
#include "query/QueryOrchestrator.h"

#include <utility>

namespace quellora {

OverlayHistory::OverlayHistory(ThreadLibrary &library, ThreadController &threads,
                               PendingRemovals &removals, const Vocabulary &words)
    : m_history(library, threads, removals), m_model(m_history, threads, words)
{
    connect(&m_history, &HistoryController::currentThreadDeleted, this,
            &OverlayHistory::currentThreadDeleted);
}

void OverlayHistory::attach(NonFocusPanel &panel, OverlayModel &overlay, HamburgerMenuModel &menu,
                            QueryOrchestrator &orchestrator, FindModel &find)
{
    menu.setHistoryAvailable(true);
    connect(&menu, &HamburgerMenuModel::historyRequested, this,
            &OverlayHistory::historyButtonClicked);
    connect(&m_history, &HistoryController::openChanged, &overlay,
            [this, &overlay] { overlay.setSheetOpen(m_history.isHistorySidebarOpen()); });
    connect(&m_history, &HistoryController::openChanged, &panel,
            [this, &panel] { updateKeyboardFocus(panel); });
    connect(&m_history, &HistoryController::threadOpened, &orchestrator,
            &QueryOrchestrator::showCurrentThread);
    connect(&m_history, &HistoryController::hitOpened, &find,
            [&orchestrator, &find](const FoundText &found) {
                if (found.version)
                    orchestrator.showVersion(found.entry, *found.version);
                find.openAt(found.text, found.entry);
            });
    connect(&m_history, &HistoryController::currentThreadRestored, &orchestrator,
            &QueryOrchestrator::showCurrentThread);
    connect(&m_history, &HistoryController::threadsDeleted, &orchestrator,
            &QueryOrchestrator::discardAnswers);
    // An open sidebar shows its own notice.
    connect(&m_history, &HistoryController::deletionFailed, &overlay,
            [this, &overlay](const QString &reason) {
                if (!m_history.isHistorySidebarOpen())
                    overlay.showNotice(reason);
            });
}

void OverlayHistory::updateKeyboardFocus(NonFocusPanel &panel)
{
    if (m_history.isHistorySidebarOpen()) {
        m_tookKeyboard = !panel.isKey();
        if (m_tookKeyboard)
            panel.makeKey();
    } else if (std::exchange(m_tookKeyboard, false)) {
        panel.resignKey();
    }
}

void OverlayHistory::historyButtonClicked()
{
    if (!m_history.isHistorySidebarOpen())
        Q_EMIT aboutToOpen();
    m_history.historyButtonClicked();
}

} // namespace quellora
