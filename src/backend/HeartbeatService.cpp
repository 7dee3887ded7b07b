#include "backend/HeartbeatService.h"

#include "app/Log.h"
#include "app/NotificationCenter.h"
#include "app/Text.h"
#include "app/WhenFinished.h"
#include "backend/SessionManager.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace quellora {

HeartbeatService::HeartbeatService(SessionManager &session, NotificationCenter &notifications,
                                   VerifierFactory makeVerifier, QObject *parent)
    : QObject(parent)
    , m_session(session)
    , m_notifications(notifications)
    , m_makeVerifier(std::move(makeVerifier))
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &HeartbeatService::poll);
}

void HeartbeatService::start(double intervalSeconds)
{
    m_intervalSeconds = intervalSeconds;
    Log::event(QStringLiteral("[HeartbeatService] Starting, interval: ") +
               decimalText(intervalSeconds) + QLatin1Char('s'));
    scheduleNext();
}

void HeartbeatService::stop()
{
    m_timer.stop();
    ++m_generation;
}

void HeartbeatService::scheduleNext()
{
    // A timer holds at most 2^31 milliseconds, some 24 days; a longer wait polls a little early.
    constexpr double maxSeconds = 2'000'000;
    const double seconds = std::clamp(m_intervalSeconds, 0.0, maxSeconds);
    m_timer.start(std::chrono::milliseconds(static_cast<qint64>(seconds * 1000)));
}

void HeartbeatService::poll()
{
    const auto token = m_session.sessionToken();
    if (!token) {
        Log::event(QStringLiteral("[HeartbeatService] No session token — stopping"));
        m_timer.stop();
        return;
    }
    const std::shared_ptr<AuthService> verifier = m_makeVerifier();
    whenFinished(verifier->verify(*token), this,
                 [this, verifier, generation = m_generation](const LoginResult &result) {
                     if (generation == m_generation)
                         pollFinished(result);
                 });
}

void HeartbeatService::pollFinished(const LoginResult &result)
{
    if (result) {
        m_session.authService().setSession(result->token, result->config);
        Log::event(QStringLiteral("[HeartbeatService] Poll succeeded, config refreshed"));
        Q_EMIT m_notifications.configDidUpdate(result->config);
    } else if (result.error() == AuthError::invalidCredentials()) {
        Log::event(QStringLiteral("[HeartbeatService] Token invalid/expired — session expired"));
        Q_EMIT m_notifications.sessionExpired();
        return;
    } else {
        Log::event(QStringLiteral("[HeartbeatService] Poll failed (non-fatal): ") +
                   result.error().description());
    }
    scheduleNext();
}

} // namespace quellora
