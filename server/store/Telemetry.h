#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <cstdint>
#include <string>

namespace quellora::server {

/// Stores the latest performance records of the apps. Thread-safe.
class Telemetry
{
public:
    /// Older records beyond this number are deleted by trim().
    static constexpr std::int64_t keptRecords = 10000;

    Telemetry(Database &database, const Clock &clock);
    /// Stores @p record, compact JSON validated by the caller.
    void add(std::int64_t accountId, const std::string &record);
    /// Deletes the records beyond the kept ones, and those received before @p before.
    void trim(TimePoint before);

private:
    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
