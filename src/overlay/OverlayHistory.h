#pragma once

#include "history/HistoryController.h"
#include "sheets/history/HistoryModel.h"

#include <QObject>

namespace quellora {

class HamburgerMenuModel;
class NonFocusPanel;
class OverlayModel;
class QueryOrchestrator;

/// The overlay's part of the stored threads: the sidebar over the panel, and what opening or
/// deleting a thread means for the answer on show. Main thread only.
class OverlayHistory : public QObject
{
    Q_OBJECT
public:
    OverlayHistory(ThreadLibrary &library, ThreadController &threads, const Vocabulary &words);

    /// Offers the sidebar in the menu and follows the user's choices from then on. Once. Everything
    /// must outlive this object, but for the panel, which goes before the model that it shows.
    void attach(NonFocusPanel &panel, OverlayModel &overlay, HamburgerMenuModel &menu,
                QueryOrchestrator &orchestrator);
    /// Opens the sidebar, which has the keyboard while it is open, or closes it.
    void historyButtonClicked();
    void close() { m_history.close(); }

    HistoryController &controller() { return m_history; }
    HistoryModel &model() { return m_model; }

Q_SIGNALS:
    /// Whatever else covers the panel has to go first.
    void aboutToOpen();
    /// The current thread has been deleted: the answer's area is to be emptied.
    void currentThreadDeleted();

private:
    void passKeyboard(NonFocusPanel &panel);

    HistoryController m_history;
    HistoryModel m_model;
    /// Whether another program had the keyboard when the sidebar opened.
    bool m_tookKeyboard = false;
};

} // namespace quellora
