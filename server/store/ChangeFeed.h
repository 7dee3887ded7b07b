#pragma once

#include "base/Clock.h"
#include "base/Stop.h"
#include "config/Config.h"
#include "store/Database.h"

#include <functional>
#include <set>
#include <string>
#include <thread>

namespace quellora::server {

/// Tells this process what others changed in the store (publishChange()), at the latest half a
/// second later. With PostgreSQL a connection of its own listens, so that it takes a moment only;
/// looking every half second covers what it misses.
class ChangeFeed
{
public:
    using OnChange = std::function<void(const std::string &topic)>;
    static constexpr std::chrono::milliseconds pause{500};

    /// Calls @p onChange on a thread of its own for each change after now, until destroyed. It may
    /// throw DatabaseError and is called again then.
    ChangeFeed(Database &database, const Clock &clock, PostgresSettings postgres,
               OnChange onChange);
    ~ChangeFeed();
    ChangeFeed(const ChangeFeed &) = delete;
    ChangeFeed &operator=(const ChangeFeed &) = delete;

private:
    class Listener;
    void run();
    void look(bool isFirst);

    Database &m_database;
    const Clock &m_clock;
    PostgresSettings m_postgres;
    OnChange m_onChange;
    /// Changes that were told. Numbers are given before a change is visible, so the greatest one
    /// does not tell which others were seen.
    std::set<std::int64_t> m_seen;
    StopSource m_stop;
    int m_wake[2] = {-1, -1};
    std::thread m_thread;
};

} // namespace quellora::server
