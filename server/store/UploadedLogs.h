#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace quellora::server {

/// Log files the apps upload, one file each, readable by the owner only, the newest kept per
/// account. Callable from any thread.
class UploadedLogs
{
public:
    UploadedLogs(std::filesystem::path directory, const Clock &clock, int keptPerAccount);

    /// Stores @p text whole or not at all; nothing (and a log line) when it cannot be written.
    std::optional<std::filesystem::path> store(std::int64_t accountId, const std::string &text);

private:
    void dropOldest(const std::string &prefix);

    std::filesystem::path m_directory;
    const Clock &m_clock;
    int m_keptPerAccount;
};

} // namespace quellora::server
