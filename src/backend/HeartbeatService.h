#pragma once

#include "backend/AuthService.h"

#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>

namespace quellora {

class NotificationCenter;
class SessionManager;

/// Re-verifies the session token at a fixed interval while the user is signed in, announces fresh
/// configurations and ends a session whose token the backend rejects. Main thread.
class HeartbeatService : public QObject
{
    Q_OBJECT
public:
    /// Makes the separate AuthService that verifies one poll.
    using VerifierFactory = std::function<std::unique_ptr<AuthService>()>;

    HeartbeatService(SessionManager &session, NotificationCenter &notifications,
                     VerifierFactory makeVerifier, QObject *parent = nullptr);

    /// Stores the interval and schedules the first poll one interval from now.
    void start(double intervalSeconds);
    /// Drops the pending poll; the answer of one under way is ignored.
    void stop();
    /// Verifies now; run by the timer.
    void poll();

    double intervalSeconds() const { return m_intervalSeconds; }
    bool isScheduled() const { return m_timer.isActive(); }

private:
    void scheduleNext();
    void pollFinished(const LoginResult &result);

    SessionManager &m_session;
    NotificationCenter &m_notifications;
    VerifierFactory m_makeVerifier;
    QTimer m_timer;
    double m_intervalSeconds = 0;
    /// Raised by stop(), so that the answer of an older poll is recognised.
    quint64 m_generation = 0;
};

} // namespace quellora
