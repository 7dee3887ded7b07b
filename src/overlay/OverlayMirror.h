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

/// Copies application state into the overlay's view models whenever it changes: service message,
/// usage, current thread and activity. Main thread only.
class OverlayMirror : public QObject
{
    Q_OBJECT
public:
    /// All must outlive this object.
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
    void refreshQuestion();
    void refreshActivity();

    Collaborators m_collaborators;
};

} // namespace quellora
