#pragma once

#include "backend/Records.h"

#include <QObject>

namespace quellora {

class AccountVisit;
class HamburgerMenuModel;
class ModelListModel;
class PermissionChecker;
class QueryOrchestrator;
class ServiceMessages;
class SessionManager;

/// Applies the backend's configuration to the overlay: usage, available models and the message
/// card, which it shares with problems found at start-up. Never changes the focus, the prompt text
/// or the answer. Main thread only.
class OverlayConfig : public QObject
{
    Q_OBJECT
public:
    /// All must outlive this object.
    struct Collaborators
    {
        SessionManager &session;
        ServiceMessages &messages;
        QueryOrchestrator &orchestrator;
        ModelListModel &models;
        HamburgerMenuModel &menu;
        AccountVisit &accountVisit;
        /// Problems found at start-up; may be null.
        PermissionChecker *permissions = nullptr;
    };

    explicit OverlayConfig(const Collaborators &collaborators);

    /// Applies the configuration received at sign-in.
    void applyConfigAtStart(const AppConfigResponse &config);
    /// Applies a refreshed configuration.
    void applyConfig(const AppConfigResponse &config);
    /// Rechecks permissions: the user may have granted one while another application was active.
    void handleAppDidBecomeActive();

private:
    void applyModels(const AppConfigResponse &config);
    void startupMessageChanged();

    Collaborators m_collaborators;
};

} // namespace quellora
