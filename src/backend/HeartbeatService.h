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

/// Verifies the session token at a fixed interval while the user is signed in, announces updated
/// configurations and expires a session whose token the backend rejects. At most one poll runs at a
/// time. Main thread.
class HeartbeatService : public QObject
{
    Q_OBJECT
public:
    /// Creates the AuthService used for one poll.
    using VerifierFactory = std::function<std::unique_ptr<AuthService>()>;
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    HeartbeatService(SessionManager &session, NotificationCenter &notifications,
                     VerifierFactory makeVerifier, QObject *parent = nullptr);
    /// Overload with an injected timer and clock.
    HeartbeatService(SessionManager &session, NotificationCenter &notifications,
                     VerifierFactory makeVerifier, std::unique_ptr<OneShotTimer> timer, Clock clock,
                     QObject *parent = nullptr);

    /// Schedules the first poll one interval from now. With an interval of zero or less, the next
    /// poll starts as soon as the previous one has finished.
    void start(double intervalSeconds);
    /// Cancels the scheduled poll and the one in progress.
    void stop();
    /// Verifies now unless a poll is in progress.
    void poll();
    /// Call when the machine wakes up: polls at once, because the timer does not advance during
    /// sleep. A poll in progress is repeated, since its connection did not outlast the sleep. If
    /// the backend cannot be reached, the network may not be up yet: the poll is then repeated a
    /// few times at short intervals. No effect while stopped.
    void resume();

    /// Whether a poll is scheduled.
    bool isScheduled() const { return m_timer->isActive(); }

private:
    void scheduleNext(double seconds);
    void waitUntilDue();
    void timerFired();
    void pollFinished(const LoginResult &result);

    SessionManager &m_session;
    NotificationCenter &m_notifications;
    VerifierFactory m_makeVerifier;
    std::unique_ptr<OneShotTimer> m_timer;
    Clock m_clock;
    double m_intervalSeconds = 0;
    /// How often a failed poll is still repeated early.
    int m_earlyRepeats = 0;
    std::chrono::steady_clock::time_point m_due;
    /// Set while a poll is in progress; deleting it aborts the poll.
    std::unique_ptr<AuthService> m_verifier;
};

} // namespace quellora
