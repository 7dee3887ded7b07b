#pragma once

#include <QList>

#include <chrono>
#include <functional>
#include <utility>

namespace quellora {

/// Says whether something that keeps breaking may be started again: at most so many times within a
/// span of time. One thread at a time.
class RestartBudget
{
public:
    using Nanoseconds = std::chrono::nanoseconds;
    /// Monotonic time.
    using Clock = std::function<Nanoseconds()>;

    static constexpr int restarts = 3;
    static constexpr std::chrono::seconds span{30};

    explicit RestartBudget(Clock clock) : m_clock(std::move(clock)) {}

    /// True, and counted, when another restart is allowed now.
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
