#pragma once

#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>

namespace quellora {

/// Runs scripts one at a time. A script is made just before it runs, so that one script can serve
/// several requests. A slow script is followed by a pause of twice its length. Main thread only.
class ScriptPacer
{
public:
    using Nanoseconds = std::chrono::nanoseconds;
    /// Monotonic time.
    using Clock = std::function<Nanoseconds()>;
    /// Makes the text of a script at the moment it is to run; an empty text runs nothing.
    using Maker = std::function<QString()>;
    /// Runs a script; done() is to be called with the token afterwards.
    using Run = std::function<void(const QString &script, quint64 token)>;

    ScriptPacer(Clock clock, Run run);

    /// Pause after a script that took @p took from start to done().
    static Nanoseconds pauseAfter(Nanoseconds took);

    /// Runs the script of @p make as soon as no other runs; replaces a request that waits.
    /// @param hasRun called when the script has run, unless it was dropped
    void request(Maker make, std::function<void()> hasRun);
    /// The script given with @p token has run or can no longer run.
    void done(quint64 token);
    /// Forgets running and waiting scripts.
    void drop();
    /// While held nothing starts; the newest request waits.
    void setHeld(bool held);

private:
    struct Request
    {
        Maker make;
        std::function<void()> hasRun;
    };

    bool isBusy() const { return m_runningToken != 0 || m_isHeld || m_pause.isActive(); }
    void runWaiting();

    Clock m_clock;
    Run m_run;
    QTimer m_pause;
    Request m_waiting;
    std::function<void()> m_hasRun;
    Nanoseconds m_startedAt{0};
    quint64 m_lastToken = 0;
    quint64 m_runningToken = 0;
    bool m_isHeld = false;
};

} // namespace quellora
