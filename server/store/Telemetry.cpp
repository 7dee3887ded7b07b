#include "store/Telemetry.h"

namespace quellora::server {

Telemetry::Telemetry(Database &database, const Clock &clock) : m_database(database), m_clock(clock)
{}

void Telemetry::add(std::int64_t accountId, const std::string &record)
{
    m_database.execute("INSERT INTO telemetry(account_id, received_at, record) VALUES(?, ?, ?)",
                       {accountId, toSeconds(m_clock.now()), record});
}

void Telemetry::trim(TimePoint before)
{
    m_database.execute("DELETE FROM telemetry WHERE received_at < ? OR id IN"
                       " (SELECT id FROM telemetry ORDER BY id DESC LIMIT ? OFFSET ?)",
                       {toSeconds(before), std::int64_t{1000000000}, keptRecords});
}

} // namespace quellora::server
