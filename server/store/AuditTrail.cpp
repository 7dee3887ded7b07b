#include "store/AuditTrail.h"

namespace quellora::server {

void AuditTrail::add(const std::string &actor, const std::string &action,
                     const std::string &subject, const std::string &detail)
{
    m_database.execute("INSERT INTO audit(at, actor, action, subject, detail)"
                       " VALUES(?, ?, ?, ?, ?)",
                       {toSeconds(m_clock.now()), actor, action, subject, detail});
}

std::vector<AuditEntry> AuditTrail::list(int most, const AuditFilter &filter)
{
    std::vector<AuditEntry> entries;
    m_database.query("SELECT id, at, actor, action, subject, detail FROM audit"
                     " WHERE (id < ? OR ? = 0) AND (actor = ? OR subject = ? OR ? = '')"
                     " AND (action = ? OR ? = '')"
                     " ORDER BY id DESC LIMIT ?",
                     {filter.before, filter.before, filter.person, filter.person, filter.person,
                      filter.action, filter.action, std::int64_t{most}},
                     [&](const Database::Row &row) {
                         entries.push_back({row.integer(0), row.integer(1), row.text(2),
                                            row.text(3), row.text(4), row.text(5)});
                     });
    return entries;
}

std::vector<std::string> AuditTrail::actions()
{
    std::vector<std::string> names;
    m_database.query("SELECT DISTINCT action FROM audit ORDER BY action", {},
                     [&](const Database::Row &row) { names.push_back(row.text(0)); });
    return names;
}

} // namespace quellora::server
