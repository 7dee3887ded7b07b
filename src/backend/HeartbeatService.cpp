#include "backend/HeartbeatService.h"

#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "base/Log.h"
#include "base/Text.h"
#include "base/WhenFinished.h"

#include <algorithm>
#include <utility>

namespace quellora {

using namespace std::chrono_literals;

namespace {

/// A timer holds at most 2^31 milliseconds, some 24 days; longer waits take several turns.
constexpr std::chrono::milliseconds longestTurn = 480h;
/// Decades: longer than any session, and well within what the clock can count.
constexpr double longestInterval = 1e9;

} // namespace

HeartbeatService::HeartbeatService(SessionManager &session, NotificationCenter &notifications,
                                   VerifierFactory makeVerifier, QObject *parent)
    : HeartbeatService(session, notifications, std::move(makeVerifier),
                       std::make_unique<QtOneShotTimer>(), &std::chrono::steady_clock::now, parent)
{}

HeartbeatService::HeartbeatService(SessionManager &session, NotificationCenter &notifications,
                                   VerifierFactory makeVerifier,
                                   std::unique_ptr<OneShotTimer> timer, Clock clock,
                                   QObject *parent)
    : QObject(parent)
    , m_session(session)
    , m_notifications(notifications)
    , m_makeVerifier(std::move(makeVerifier))
    , m_timer(std::move(timer))
    , m_clock(std::move(clock))
{
    m_timer->onTimeout = [this] { timerFired(); };
}

void HeartbeatService::start(double intervalSeconds)
{
    // What an earlier session asked for must not end this one.
    stop();
    m_intervalSeconds = intervalSeconds;
    Log::event(QStringLiteral("[HeartbeatService] Starting, interval: ") +
               decimalText(intervalSeconds) + QLatin1Char('s'));
    scheduleNext();
}

void HeartbeatService::stop()
{
    m_timer->stop();
    m_verifier.reset();
}

void HeartbeatService::scheduleNext()
{
    const double seconds = m_intervalSeconds > 0 ? std::min(m_intervalSeconds, longestInterval) : 0;
    m_due = m_clock() + std::chrono::milliseconds(static_cast<qint64>(seconds * 1000));
    waitUntilDue();
}

void HeartbeatService::waitUntilDue()
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_due - m_clock());
    m_timer->start(std::clamp(left, 0ms, longestTurn));
}

void HeartbeatService::timerFired()
{
    // Timers may be early by what they round.
    if (m_due - m_clock() > 1s)
        waitUntilDue();
    else
        poll();
}

void HeartbeatService::poll()
{
    if (m_verifier)
        return;
    const auto token = m_session.sessionToken();
    if (!token) {
        Log::event(QStringLiteral("[HeartbeatService] No session token — stopping"));
        m_timer->stop();
        return;
    }
    m_timer->stop();
    m_verifier = m_makeVerifier();
    // The verifier is the context, so nothing comes back from one that has been dropped.
    whenFinished(m_verifier->verify(*token), m_verifier.get(), [this](const LoginResult &result) {
        // This runs within the verifier's own event.
        m_verifier.release()->deleteLater();
        pollFinished(result);
    });
}

void HeartbeatService::pollFinished(const LoginResult &result)
{
    if (!result && result.error() == AuthError::invalidCredentials()) {
        Log::event(QStringLiteral("[HeartbeatService] Token invalid/expired — session expired"));
        Q_EMIT m_notifications.sessionExpired();
        return;
    }
    // Before anybody is told, who may stop it again.
    scheduleNext();
    if (!result) {
        Log::event(QStringLiteral("[HeartbeatService] Poll failed (non-fatal): ") +
                   result.error().description());
        return;
    }
    m_session.authService().setSession(result->token, result->config);
    Log::event(QStringLiteral("[HeartbeatService] Poll succeeded, config refreshed"));
    Q_EMIT m_notifications.configDidUpdate(result->config);
}

} // namespace quellora
