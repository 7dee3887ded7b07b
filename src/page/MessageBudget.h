#pragma once

#include <chrono>
#include <functional>
#include <utility>

namespace quellora {

/// Limits how many messages a page may post per second. Not thread-safe.
class MessageBudget
{
public:
    using Nanoseconds = std::chrono::nanoseconds;
    /// Monotonic time.
    using Clock = std::function<Nanoseconds()>;

    enum class Verdict {
        Taken,
        /// Refused; the first refusal of a flood.
        FloodBegins,
        Refused,
    };

    /// Far more than scrolling and pressing produce on the fastest screen.
    static constexpr int messages = 500;
    static constexpr std::chrono::seconds span{1};

    explicit MessageBudget(Clock clock) : m_clock(std::move(clock)) {}

    /// Counts one message. A flood ends with a second without a refusal.
    Verdict take()
    {
        const Nanoseconds now = m_clock();
        if (now - m_start >= span) {
            m_isFlood = m_count > messages && now - m_start < 2 * span;
            m_start = now;
            m_count = 0;
        }
        if (++m_count <= messages)
            return Verdict::Taken;
        return std::exchange(m_isFlood, true) ? Verdict::Refused : Verdict::FloodBegins;
    }

private:
    Clock m_clock;
    Nanoseconds m_start{0};
    int m_count = 0;
    bool m_isFlood = false;
};

} // namespace quellora
