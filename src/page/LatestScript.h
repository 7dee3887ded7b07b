#pragma once

#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>

namespace quellora {

/// Decides when a script runs that makes earlier ones of its kind pointless: one runs at a time, of
/// those that come meanwhile only the newest is kept. After one that took long, the page gets time
/// for itself before the next. Main thread only.
class LatestScript
{
public:
    using Nanoseconds = std::chrono::nanoseconds;
    /// Monotonic time.
    using Clock = std::function<Nanoseconds()>;
    /// Makes the text of a script at the moment it is to run; an empty text runs nothing.
    using Maker = std::function<QString()>;
    /// Runs a script; done() is to be called with the token afterwards.
    using Run = std::function<void(const QString &script, quint64 token)>;

    LatestScript(Clock clock, Run run);

    /// How long the page is left alone after a script of @p size characters that took @p took from
    /// call to report. Slow ones leave the page half of its time. Long ones cost in proportion to
    /// their text wherever they pass, so they come less often: for an answer of 128 KB after 16 ms.
    static Nanoseconds pauseAfter(Nanoseconds took, qsizetype size);

    void request(Maker script);
    /// The script given with @p token has run or can no longer run.
    void done(quint64 token);
    /// Forgets running and waiting scripts.
    void drop();
    /// While held nothing starts; the newest script waits.
    void setHeld(bool held);

private:
    bool isBusy() const { return m_runningToken != 0 || m_isHeld || m_pause.isActive(); }
    void runWaiting();

    Clock m_clock;
    Run m_run;
    QTimer m_pause;
    Maker m_waiting;
    Nanoseconds m_startedAt{0};
    qsizetype m_runningSize = 0;
    quint64 m_lastToken = 0;
    quint64 m_runningToken = 0;
    bool m_isHeld = false;
};

} // namespace quellora
