#pragma once

#include "backend/AuthService.h"

#include <QObject>

#include <functional>
#include <optional>

namespace quellora {

class NotificationCenter;

/// Access to the current session and its end. The session is held in memory only. Main thread.
class SessionManager : public QObject
{
    Q_OBJECT
public:
    /// @param authService borrowed; must outlive the manager
    SessionManager(AuthService &authService, NotificationCenter &notifications,
                   QObject *parent = nullptr);

    AuthService &authService() { return m_authService; }
    std::optional<QString> sessionToken() const { return m_authService.sessionToken(); }
    const std::optional<AppConfigResponse> &currentConfig() const
    {
        return m_authService.currentConfig();
    }

    /// Called first by logout(), to stop the configuration polls.
    void setHeartbeatStopper(std::function<void()> stopper);

    /// Stops the heartbeat, clears token and configuration and emits sessionDidEnd. May be called
    /// when already signed out.
    void logout();

private:
    AuthService &m_authService;
    NotificationCenter &m_notifications;
    std::function<void()> m_stopHeartbeat;
};

} // namespace quellora
