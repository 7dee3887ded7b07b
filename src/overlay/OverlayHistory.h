#pragma once

#include "history/HistoryController.h"
#include "sheets/history/HistoryModel.h"

#include <QObject>

namespace quellora {

class FindModel;
class HamburgerMenuModel;
class NonFocusPanel;
class OverlayModel;
class QueryOrchestrator;

/// Connects the History sidebar to the overlay: opening and closing it, and updating the displayed
/// answer when a thread is opened or deleted. Main thread only.
class OverlayHistory : public QObject
{
    Q_OBJECT
public:
    /// All but @p words must outlive this object.
    OverlayHistory(ThreadLibrary &library, ThreadController &threads, PendingRemovals &removals,
                   const Vocabulary &words);

    /// Adds History to the menu and connects the sidebar. Call once. All arguments must outlive
    /// this object, except @p panel, which must be destroyed before the model it shows.
    void attach(NonFocusPanel &panel, OverlayModel &overlay, HamburgerMenuModel &menu,
                QueryOrchestrator &orchestrator, FindModel &find);
    /// Toggles the sidebar, which has keyboard focus while open.
    void historyButtonClicked();
    void close() { m_history.close(); }

    HistoryController &controller() { return m_history; }
    HistoryModel &model() { return m_model; }

Q_SIGNALS:
    /// Emitted before the sidebar opens, so that other sheets can close.
    void aboutToOpen();
    /// The current thread was deleted; the answer must be cleared.
    void currentThreadDeleted();

private:
    /// Takes keyboard focus when the sidebar opens and returns it when it closes.
    void updateKeyboardFocus(NonFocusPanel &panel);

    HistoryController m_history;
    HistoryModel m_model;
    /// Whether opening the sidebar took keyboard focus from another application.
    bool m_tookKeyboard = false;
};

} // namespace quellora
