#include "store/AuditTrail.h"

namespace quellora::server {

void AuditTrail::add(const std::string &actor, const std::string &action,
                     const std::string &subject, const std::string &detail)
{
    m_database.execute("INSERT INTO audit(at, actor, action, subject, detail)"
                       " VALUES(?, ?, ?, ?, ?)",
                       {toSeconds(m_clock.now()), actor, action, subject, detail});
}

std::vector<AuditEntry> AuditTrail::list(int most, std::int64_t before, const std::string &person)
{
    std::vector<AuditEntry> entries;
    m_database.query("SELECT id, at, actor, action, subject, detail FROM audit"
                     " WHERE (id < ? OR ? = 0) AND (actor = ? OR subject = ? OR ? = '')"
                     " ORDER BY id DESC LIMIT ?",
                     {before, before, person, person, person, std::int64_t{most}},
                     [&](const Database::Row &row) {
                         entries.push_back({row.integer(0), row.integer(1), row.text(2),
                                            row.text(3), row.text(4), row.text(5)});
                     });
    return entries;
}

} // namespace quellora::server
