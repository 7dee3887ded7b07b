#pragma once

#include "config/Config.h"
#include "store/Database.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

struct pg_conn;
struct pg_result;

namespace quellora::server {

/// "name of the user@host:port/database" of a URL, without password, or nothing when it cannot be
/// understood.
std::optional<std::string> describePostgres(const std::string &url);

/// One connection with a PostgreSQL server, used by one thread at a time.
class PostgresConnection
{
public:
    using Result = std::unique_ptr<pg_result, void (*)(pg_result *)>;

    /// Connects; throws DatabaseError (Unavailable) when that fails.
    PostgresConnection(const std::string &url, const PostgresSettings &settings);
    ~PostgresConnection();
    PostgresConnection(const PostgresConnection &) = delete;
    PostgresConnection &operator=(const PostgresConnection &) = delete;

    /// Runs one statement with "?" for each value. An error is Uncertain when the connection broke
    /// after the statement was sent, and isBroken() from then on.
    Result run(const std::string &sql, const std::vector<Database::Value> &values);
    /// Runs statements without values. False when a COMMIT among them undid the transaction.
    bool command(const std::string &statements);
    bool isBroken() const { return m_isBroken; }
    /// Whether the server has closed the connection while it was not in use.
    bool isStale();
    /// Waits until an announcement arrives and returns its text; nothing after @p timeout or when
    /// @p wakeDescriptor becomes readable.
    std::optional<std::string> waitForAnnouncement(std::chrono::milliseconds timeout,
                                                   int wakeDescriptor);

private:
    Result finish();
    [[noreturn]] void breakOff(const std::string &reason, DatabaseError::Kind kind);

    pg_conn *m_connection = nullptr;
    std::chrono::milliseconds m_statement;
    bool m_isBroken = false;
};

} // namespace quellora::server
