#include "http/RateLimiter.h"

#include <algorithm>

namespace quellora::server {

RateLimiter::RateLimiter(const Clock &clock, int limit, std::chrono::seconds window)
    : m_clock(clock), m_limit(limit), m_window(window), m_lastSweep(clock.now())
{}

std::optional<std::chrono::seconds> RateLimiter::acquire(const std::string &key)
{
    const std::lock_guard lock(m_mutex);
    std::deque<TimePoint> &events = recent(key);
    if (const auto seconds = waitOf(events))
        return seconds;
    events.push_back(m_clock.now());
    return std::nullopt;
}

std::optional<std::chrono::seconds> RateLimiter::wait(const std::string &key)
{
    const std::lock_guard lock(m_mutex);
    return waitOf(recent(key));
}

void RateLimiter::record(const std::string &key)
{
    const std::lock_guard lock(m_mutex);
    recent(key).push_back(m_clock.now());
}

void RateLimiter::reset(const std::string &key)
{
    const std::lock_guard lock(m_mutex);
    m_events.erase(key);
}

std::deque<TimePoint> &RateLimiter::recent(const std::string &key)
{
    sweep();
    std::deque<TimePoint> &events = m_events[key];
    while (!events.empty() && events.front() + m_window <= m_clock.now())
        events.pop_front();
    return events;
}

std::optional<std::chrono::seconds> RateLimiter::waitOf(const std::deque<TimePoint> &events) const
{
    const auto limit = static_cast<std::size_t>(m_limit);
    if (events.size() < limit)
        return std::nullopt;
    const auto free = events[events.size() - limit] + m_window - m_clock.now();
    return std::max(std::chrono::ceil<std::chrono::seconds>(free), std::chrono::seconds(1));
}

void RateLimiter::sweep()
{
    const TimePoint now = m_clock.now();
    if (now - m_lastSweep < m_window)
        return;
    m_lastSweep = now;
    std::erase_if(m_events, [&](const auto &entry) {
        return entry.second.empty() || entry.second.back() + m_window <= now;
    });
}

} // namespace quellora::server
