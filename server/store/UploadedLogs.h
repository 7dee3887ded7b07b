#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quellora::server {

/// A log as listed.
struct UploadedLog
{
    std::int64_t id = 0;
    std::int64_t accountId = 0;
    /// Seconds since the epoch.
    std::int64_t receivedAt = 0;
    std::int64_t bytes = 0;
};

/// Logs uploaded by the apps, unmodified, so that every instance can show them. The newest of each
/// account are kept. Thread-safe.
class UploadedLogs
{
public:
    UploadedLogs(Database &database, const Clock &clock, int keptPerAccount);

    /// Stores @p text completely or not at all; false, after a log line, when it cannot be written.
    bool store(std::int64_t accountId, const std::string &text);
    /// All logs, newest first; those of one account when @p accountId is not 0.
    std::vector<UploadedLog> list(std::int64_t accountId = 0);
    /// The log of that number, or nothing.
    std::optional<UploadedLog> find(std::int64_t id);
    /// Passes the log's content piece by piece to @p onPiece until that returns false.
    void read(std::int64_t id, const std::function<bool(std::string_view)> &onPiece);
    /// Moves the logs that an older version stored as files in @p directory into the store. What
    /// cannot be moved remains, after a log line.
    void adopt(const std::filesystem::path &directory);

private:
    void insert(std::int64_t accountId, const std::string &text, std::int64_t receivedAt);
    std::vector<UploadedLog> select(const std::string &condition,
                                    const std::vector<Database::Value> &values);

    Database &m_database;
    const Clock &m_clock;
    int m_keptPerAccount;
};

} // namespace quellora::server
