#include "admin/AdminSessions.h"

#include "base/Secrets.h"

namespace quellora::server {

std::string AdminSessions::begin(std::int64_t administrator)
{
    const TimePoint now = m_clock.now();
    m_database.execute("DELETE FROM admin_sessions WHERE created_at <= ? OR seen_at <= ?",
                       {toSeconds(now - longest), toSeconds(now - idle)});
    std::string token = randomToken();
    m_database.execute("INSERT INTO admin_sessions(fingerprint, admin_id, created_at, seen_at)"
                       " VALUES(?, ?, ?, ?)",
                       {tokenFingerprint(token), administrator, toSeconds(now), toSeconds(now)});
    return token;
}

std::optional<std::int64_t> AdminSessions::find(const std::string &token)
{
    if (token.empty())
        return std::nullopt;
    const TimePoint now = m_clock.now();
    std::optional<std::int64_t> administrator;
    m_database.query(
        "UPDATE admin_sessions SET seen_at = ?"
        " WHERE fingerprint = ? AND created_at > ? AND seen_at > ?"
        " RETURNING admin_id",
        {toSeconds(now), tokenFingerprint(token), toSeconds(now - longest), toSeconds(now - idle)},
        [&](const Database::Row &row) { administrator = row.integer(0); });
    return administrator;
}

void AdminSessions::end(const std::string &token)
{
    m_database.execute("DELETE FROM admin_sessions WHERE fingerprint = ?",
                       {tokenFingerprint(token)});
}

void AdminSessions::endOthers(std::int64_t administrator, const std::string &token)
{
    m_database.execute("DELETE FROM admin_sessions WHERE admin_id = ? AND fingerprint <> ?",
                       {administrator, tokenFingerprint(token)});
}

std::string AdminSessions::formToken(const std::string &token)
{
    return tokenFingerprint("form " + token);
}

} // namespace quellora::server
