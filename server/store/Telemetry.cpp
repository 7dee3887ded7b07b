#include "store/Telemetry.h"

namespace quellora::server {

Telemetry::Telemetry(Database &database, const Clock &clock) : m_database(database), m_clock(clock)
{}

void Telemetry::add(std::int64_t accountId, const std::string &record)
{
    m_database.transaction([&] {
        m_database.execute("INSERT INTO telemetry(account_id, received_at, record) VALUES(?, ?, ?)",
                           {accountId, toSeconds(m_clock.now()), record});
        m_database.execute("DELETE FROM telemetry WHERE id <= (SELECT max(id) FROM telemetry) - ?",
                           {keptRecords});
    });
}

} // namespace quellora::server
