#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace quellora::server {

/// Limits the number of events per key within a sliding window. Thread-safe.
class RateLimiter
{
public:
    using Wait = std::optional<std::chrono::seconds>;

    virtual ~RateLimiter() = default;
    /// Counts an event, or returns the time to wait when the limit is reached.
    virtual Wait acquire(const std::string &key) = 0;
    /// Forgets the events of @p key.
    virtual void reset(const std::string &key) = 0;
};

/// Counts in memory, for a store that one process serves. Keys without events in the window are
/// removed.
class MemoryRateLimiter final : public RateLimiter
{
public:
    MemoryRateLimiter(const Clock &clock, int limit, std::chrono::seconds window);

    Wait acquire(const std::string &key) override;
    void reset(const std::string &key) override;

private:
    using Events = std::deque<TimePoint>;
    Events &recent(const std::string &key);
    Wait waitOf(const Events &events) const;
    void sweep();

    const Clock &m_clock;
    int m_limit;
    std::chrono::seconds m_window;
    std::mutex m_mutex;
    std::map<std::string, Events> m_events;
    TimePoint m_lastSweep;
};

/// Counts in the store, for all instances together. Keys are stored as fingerprints.
class StoredRateLimiter final : public RateLimiter
{
public:
    /// @p scope tells the limiters of a store apart.
    StoredRateLimiter(Database &database, const Clock &clock, std::string scope, int limit,
                      std::chrono::seconds window);

    Wait acquire(const std::string &key) override;
    void reset(const std::string &key) override;

private:
    Wait waitOf(const std::string &name);
    void insert(const std::string &name);

    Database &m_database;
    const Clock &m_clock;
    std::string m_scope;
    int m_limit;
    std::chrono::milliseconds m_window;
};

/// Removes the events of a key from all limiters of the store.
void forgetRates(Database &database, const std::string &key);

/// The limiter that suits @p database.
std::unique_ptr<RateLimiter> makeRateLimiter(Database &database, const Clock &clock,
                                             const std::string &scope, int limit,
                                             std::chrono::seconds window);

} // namespace quellora::server
