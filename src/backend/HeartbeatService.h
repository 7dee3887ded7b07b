#pragma once

#include "backend/AuthService.h"
#include "backend/OneShotTimer.h"

#include <QObject>

#include <chrono>
#include <functional>
#include <memory>

namespace quellora {

class NotificationCenter;
class SessionManager;

/// Re-verifies the session token at a fixed interval while the user is signed in, announces fresh
/// configurations and ends a session whose token the backend rejects. One poll runs at a time.
/// Main thread.
class HeartbeatService : public QObject
{
    Q_OBJECT
public:
    /// Makes the separate AuthService that verifies one poll.
    using VerifierFactory = std::function<std::unique_ptr<AuthService>()>;
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    HeartbeatService(SessionManager &session, NotificationCenter &notifications,
                     VerifierFactory makeVerifier, QObject *parent = nullptr);
    /// With a timer and a clock of the caller's choice.
    HeartbeatService(SessionManager &session, NotificationCenter &notifications,
                     VerifierFactory makeVerifier, std::unique_ptr<OneShotTimer> timer, Clock clock,
                     QObject *parent = nullptr);

    /// Stores the interval and schedules the first poll one interval from now. Zero and less poll
    /// as fast as the network answers.
    void start(double intervalSeconds);
    /// Drops the pending poll and the one under way.
    void stop();
    /// Verifies now, unless that is under way; run by the timer.
    void poll();

    double intervalSeconds() const { return m_intervalSeconds; }
    bool isScheduled() const { return m_timer->isActive(); }

private:
    void scheduleNext();
    void waitUntilDue();
    void timerFired();
    void pollFinished(const LoginResult &result);

    SessionManager &m_session;
    NotificationCenter &m_notifications;
    VerifierFactory m_makeVerifier;
    std::unique_ptr<OneShotTimer> m_timer;
    Clock m_clock;
    double m_intervalSeconds = 0;
    std::chrono::steady_clock::time_point m_due;
    /// Lives while a poll is under way; ending it ends the poll.
    std::unique_ptr<AuthService> m_verifier;
};

} // namespace quellora
