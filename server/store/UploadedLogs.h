#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <filesystem>
#include <string>

namespace quellora::server {

/// Log files uploaded by the apps, readable by the owner only. The newest of each account are kept.
/// Callable from any thread.
class UploadedLogs
{
public:
    UploadedLogs(std::filesystem::path directory, const Clock &clock, int keptPerAccount);

    /// Stores @p text completely or not at all; false, after a log line, when it cannot be written.
    bool store(std::int64_t accountId, const std::string &text);

private:
    void dropOldest(const std::string &prefix);

    std::filesystem::path m_directory;
    const Clock &m_clock;
    int m_keptPerAccount;
};

} // namespace quellora::server
