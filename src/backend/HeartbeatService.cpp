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

/// QTimer is limited to 2^31 milliseconds (about 24 days); longer waits are split.
constexpr std::chrono::milliseconds maxTimerDelay = 480h;
/// About 30 years; keeps the arithmetic within the clock's range.
constexpr double maxIntervalSeconds = 1e9;
/// After waking up, until the network is up again.
constexpr int earlyRepeats = 4;
constexpr double earlyRepeatSeconds = 15;

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
    // A poll of an earlier session must not affect this one.
    stop();
    m_intervalSeconds = intervalSeconds;
    Log::event(QStringLiteral("[HeartbeatService] Starting, interval: ") +
               decimalText(intervalSeconds) + QLatin1Char('s'));
    scheduleNext(intervalSeconds);
}

void HeartbeatService::stop()
{
    m_timer->stop();
    m_verifier.reset();
    m_earlyRepeats = 0;
}

void HeartbeatService::scheduleNext(double seconds)
{
    const double delay = seconds > 0 ? std::min(seconds, maxIntervalSeconds) : 0;
    m_due = m_clock() + std::chrono::milliseconds(static_cast<qint64>(delay * 1000));
    waitUntilDue();
}

void HeartbeatService::waitUntilDue()
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_due - m_clock());
    m_timer->start(std::clamp(left, 0ms, maxTimerDelay));
}

void HeartbeatService::timerFired()
{
    // Coarse timers may fire slightly early.
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
    // The verifier is the context: deleting it drops the result.
    whenFinished(m_verifier->verify(*token), m_verifier.get(), [this](const LoginResult &result) {
        // Deferred, because the verifier is handling an event.
        m_verifier.release()->deleteLater();
        pollFinished(result);
    });
}

void HeartbeatService::resume()
{
    if (!m_timer->isActive() && !m_verifier)
        return;
    Log::event(QStringLiteral("[HeartbeatService] Woken up — polling now"));
    m_verifier.reset();
    m_earlyRepeats = earlyRepeats;
    poll();
}

void HeartbeatService::pollFinished(const LoginResult &result)
{
    if (!result && result.error() == AuthError::invalidCredentials()) {
        Log::event(QStringLiteral("[HeartbeatService] Token invalid/expired — session expired"));
        Q_EMIT m_notifications.sessionExpired();
        return;
    }
    const bool isRepeatedEarly = !result && m_earlyRepeats > 0;
    m_earlyRepeats = isRepeatedEarly ? m_earlyRepeats - 1 : 0;
    // Before notifying observers, which may call stop().
    scheduleNext(isRepeatedEarly ? std::min(m_intervalSeconds, earlyRepeatSeconds)
                                 : m_intervalSeconds);
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
