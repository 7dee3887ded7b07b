#pragma once

#include "history/HistoryController.h"
#include "panels/history/HistoryModel.h"

#include <QObject>

namespace quellora {

class HamburgerMenuModel;
class OverlayModel;
class QueryOrchestrator;

/// The overlay's part of the stored threads: the sidebar over the panel, and what opening or
/// deleting a thread means for the answer on show. Main thread only.
class OverlayHistory : public QObject
{
    Q_OBJECT
public:
    OverlayHistory(ThreadLibrary &library, ThreadController &threads);

    /// Offers the sidebar in the menu and follows the user's choices from then on. Once. Everything
    /// must outlive this object.
    void attach(OverlayModel &overlay, HamburgerMenuModel &menu, QueryOrchestrator &orchestrator);
    /// Opens the sidebar, or closes it.
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
    HistoryController m_history;
    HistoryModel m_model;
};

} // namespace quellora
