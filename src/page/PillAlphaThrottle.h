#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace quellora {

/// Limits pushes to one per 1/30 s; the last one is never lost. Main thread only.
class PillAlphaThrottle
{
public:
    using Nanoseconds = std::chrono::nanoseconds;
    /// Monotonic time.
    using Clock = std::function<Nanoseconds()>;
    /// Schedules fire() after a delay, replacing an earlier request; without a delay it cancels
    /// the request.
    using Schedule = std::function<void(std::optional<Nanoseconds> delay)>;

    static constexpr Nanoseconds interval{1'000'000'000 / 30};

    PillAlphaThrottle(Clock clock, Schedule schedule, std::function<void()> push)
        : m_clock(std::move(clock)), m_schedule(std::move(schedule)), m_push(std::move(push))
    {}

    /// Pushes now if the last push is at least the interval ago, else schedules one push at the end
    /// of the interval.
    void request()
    {
        m_schedule(std::nullopt);
        const Nanoseconds now = m_clock();
        if (!m_lastPush || now - *m_lastPush >= interval) {
            fire();
            return;
        }
        m_schedule(interval - (now - *m_lastPush));
    }

    /// Pushes at the scheduled time.
    void fire()
    {
        m_lastPush = m_clock();
        m_push();
    }

private:
    Clock m_clock;
    Schedule m_schedule;
    std::function<void()> m_push;
    std::optional<Nanoseconds> m_lastPush;
};

} // namespace quellora
