#pragma once

#include "backend/Records.h"

#include <QObject>

namespace quellora {

class ModelListModel;
class PermissionChecker;
class QueryOrchestrator;
class ServiceMessages;
class SessionManager;

/// What the backend's configuration means for the overlay: usage, the models on offer and the
/// message on show; and how the problems found at start-up share the card with it. Nothing here
/// takes the focus, the typed text or the answer away. Main thread only.
class OverlayConfig : public QObject
{
    Q_OBJECT
public:
    /// All borrowed.
    struct Collaborators
    {
        SessionManager &session;
        ServiceMessages &messages;
        QueryOrchestrator &orchestrator;
        ModelListModel &models;
        /// Problems found at start-up; may be null.
        PermissionChecker *permissions = nullptr;
    };

    explicit OverlayConfig(const Collaborators &collaborators);

    /// The configuration that sign-in brought.
    void applyConfigAtStart(const AppConfigResponse &config);
    /// A refreshed configuration has arrived.
    void applyConfig(const AppConfigResponse &config);
    /// The user has turned to the program, perhaps after granting what it lacked.
    void handleAppDidBecomeActive();

private:
    void startupMessageChanged();

    Collaborators m_collaborators;
};

} // namespace quellora
