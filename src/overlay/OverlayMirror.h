#pragma once

#include <QObject>

namespace quellora {

class BottomPanelsModel;
class HamburgerMenuModel;
class OverlayModel;
class QueryOrchestrator;
class ResponseDisplay;
class ServiceMessages;
class ThreadController;

/// Keeps what the overlay's views show equal to the state behind them: the message and the usage,
/// the thread, and what is under way. Main thread only.
class OverlayMirror : public QObject
{
    Q_OBJECT
public:
    /// All borrowed.
    struct Collaborators
    {
        const ServiceMessages &messages;
        const ThreadController &threads;
        const QueryOrchestrator &orchestrator;
        const ResponseDisplay &display;
        OverlayModel &overlay;
        BottomPanelsModel &panels;
        HamburgerMenuModel &menu;
    };

    explicit OverlayMirror(const Collaborators &collaborators);

private:
    void refreshMessages();
    void refreshThread();
    void refreshActivity();

    Collaborators m_collaborators;
};

} // namespace quellora
