#include "backend/SessionManager.h"

#include "backend/NotificationCenter.h"
#include "base/Log.h"

#include <utility>

namespace quellora {

SessionManager::SessionManager(AuthService &authService, NotificationCenter &notifications,
                               QObject *parent)
    : QObject(parent), m_authService(authService), m_notifications(notifications)
{}

void SessionManager::setHeartbeatStopper(std::function<void()> stopper)
{
    m_stopHeartbeat = std::move(stopper);
}

void SessionManager::logout()
{
    if (m_stopHeartbeat)
        m_stopHeartbeat();
    m_authService.clearSession();
    Log::event(QStringLiteral("[AuthService] Session cleared from memory"));
    Q_EMIT m_notifications.sessionDidEnd();
}

} // namespace quellora
