#pragma once

#include "base/Clock.h"

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace quellora::server {

/// Limits the number of events per key within a sliding window. Thread-safe. Keys without events
/// in the window are removed.
class RateLimiter
{
public:
    RateLimiter(const Clock &clock, int limit, std::chrono::seconds window);

    /// Counts an event, or returns the time to wait when the limit is reached.
    std::optional<std::chrono::seconds> acquire(const std::string &key);
    /// The time to wait, without counting an event.
    std::optional<std::chrono::seconds> wait(const std::string &key);
    /// Counts an event whether or not the limit is reached.
    void record(const std::string &key);
    /// Forgets the events of @p key.
    void reset(const std::string &key);

private:
    std::deque<TimePoint> &recent(const std::string &key);
    std::optional<std::chrono::seconds> waitOf(const std::deque<TimePoint> &events) const;
    void sweep();

    const Clock &m_clock;
    int m_limit;
    std::chrono::seconds m_window;
    std::mutex m_mutex;
    std::map<std::string, std::deque<TimePoint>> m_events;
    TimePoint m_lastSweep;
};

} // namespace quellora::server
