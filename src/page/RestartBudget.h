#pragma once

#include <QList>

#include <chrono>
#include <functional>
#include <utility>

namespace quellora {

/// Limits how often something that keeps failing is restarted within a span of time. Not
/// thread-safe.
class RestartBudget
{
public:
    using Nanoseconds = std::chrono::nanoseconds;
    /// Monotonic time.
    using Clock = std::function<Nanoseconds()>;

    static constexpr int restarts = 3;
    static constexpr std::chrono::seconds span{30};

    explicit RestartBudget(Clock clock) : m_clock(std::move(clock)) {}

    /// Returns whether another restart is allowed now, and counts it.
    bool take()
    {
        const Nanoseconds now = m_clock();
        m_taken.removeIf([now](Nanoseconds moment) { return now - moment >= span; });
        if (m_taken.size() >= restarts)
            return false;
        m_taken.append(now);
        return true;
    }

private:
    Clock m_clock;
    QList<Nanoseconds> m_taken;
};

} // namespace quellora
