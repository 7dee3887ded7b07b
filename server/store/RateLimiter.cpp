#include "store/RateLimiter.h"

#include "base/Secrets.h"

#include <algorithm>

namespace quellora::server {

MemoryRateLimiter::MemoryRateLimiter(const Clock &clock, int limit, std::chrono::seconds window)
    : m_clock(clock), m_limit(limit), m_window(window), m_lastSweep(clock.now())
{}

RateLimiter::Wait MemoryRateLimiter::acquire(const std::string &key)
{
    const std::lock_guard lock(m_mutex);
    Events &events = recent(key);
    if (const auto seconds = waitOf(events))
        return seconds;
    events.push_back(m_clock.now());
    return std::nullopt;
}

void MemoryRateLimiter::reset(const std::string &key)
{
    const std::lock_guard lock(m_mutex);
    m_events.erase(key);
}

MemoryRateLimiter::Events &MemoryRateLimiter::recent(const std::string &key)
{
    sweep();
    Events &events = m_events[key];
    while (!events.empty() && events.front() + m_window <= m_clock.now())
        events.pop_front();
    return events;
}

RateLimiter::Wait MemoryRateLimiter::waitOf(const Events &events) const
{
    const auto limit = static_cast<std::size_t>(m_limit);
    if (events.size() < limit)
        return std::nullopt;
    const auto free = events[events.size() - limit] + m_window - m_clock.now();
    return std::max(std::chrono::ceil<std::chrono::seconds>(free), std::chrono::seconds(1));
}

void MemoryRateLimiter::sweep()
{
    const TimePoint now = m_clock.now();
    if (now - m_lastSweep < m_window)
        return;
    m_lastSweep = now;
    std::erase_if(m_events, [&](const auto &entry) {
        return entry.second.empty() || entry.second.back() + m_window <= now;
    });
}

StoredRateLimiter::StoredRateLimiter(Database &database, const Clock &clock, std::string scope,
                                     int limit, std::chrono::seconds window)
    : m_database(database)
    , m_clock(clock)
    , m_scope(std::move(scope))
    , m_limit(limit)
    , m_window(window)
{}

RateLimiter::Wait StoredRateLimiter::acquire(const std::string &key)
{
    const std::string name = tokenFingerprint(key);
    Wait wait;
    m_database.transaction(
        [&] {
            m_database.lockKey(m_scope + ":" + name);
            wait = waitOf(name);
            if (!wait)
                insert(name);
        },
        Database::Work::Relaxed);
    return wait;
}

void StoredRateLimiter::reset(const std::string &key)
{
    m_database.execute("DELETE FROM rate_events WHERE scope = ? AND name = ?",
                       {m_scope, tokenFingerprint(key)});
}

RateLimiter::Wait StoredRateLimiter::waitOf(const std::string &name)
{
    const std::int64_t now = toMilliseconds(m_clock.now());
    Wait wait;
    // The event that has to leave the window before another one fits in.
    m_database.query("SELECT at FROM rate_events WHERE scope = ? AND name = ? AND at > ?"
                     " ORDER BY at DESC LIMIT 1 OFFSET ?",
                     {m_scope, name, now - m_window.count(), std::int64_t{m_limit - 1}},
                     [&](const Database::Row &row) {
                         const auto free = row.integer(0) + m_window.count() - now;
                         wait = std::max(std::chrono::ceil<std::chrono::seconds>(
                                             std::chrono::milliseconds(free)),
                                         std::chrono::seconds(1));
                     });
    return wait;
}

void StoredRateLimiter::insert(const std::string &name)
{
    const std::int64_t now = toMilliseconds(m_clock.now());
    m_database.transaction(
        [&] {
            m_database.execute("DELETE FROM rate_events WHERE scope = ? AND name = ? AND at <= ?",
                               {m_scope, name, now - m_window.count()});
            m_database.execute("INSERT INTO rate_events(scope, name, at) VALUES(?, ?, ?)",
                               {m_scope, name, now});
        },
        Database::Work::Relaxed);
}

void forgetRates(Database &database, const std::string &key)
{
    database.execute("DELETE FROM rate_events WHERE name = ?", {tokenFingerprint(key)});
}

std::unique_ptr<RateLimiter> makeRateLimiter(Database &database, const Clock &clock,
                                             const std::string &scope, int limit,
                                             std::chrono::seconds window)
{
    if (database.isShared())
        return std::make_unique<StoredRateLimiter>(database, clock, scope, limit, window);
    return std::make_unique<MemoryRateLimiter>(clock, limit, window);
}

} // namespace quellora::server
