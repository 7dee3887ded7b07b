#include "admin/Invitations.h"

#include "base/Secrets.h"

namespace quellora::server {

std::string Invitations::issue(std::int64_t accountId)
{
    std::string token = randomToken();
    const TimePoint now = m_clock.now();
    m_database.transaction([&] {
        m_database.execute("DELETE FROM invitations WHERE account_id = ? OR expires_at <= ?",
                           {accountId, toSeconds(now)});
        m_database.execute(
            "INSERT INTO invitations(fingerprint, account_id, expires_at) VALUES(?, ?, ?)",
            {tokenFingerprint(token), accountId, toSeconds(now + lifetime)});
    });
    return token;
}

std::optional<std::int64_t> Invitations::find(const std::string &token)
{
    std::optional<std::int64_t> account;
    m_database.query("SELECT account_id FROM invitations WHERE fingerprint = ? AND expires_at > ?",
                     {tokenFingerprint(token), toSeconds(m_clock.now())},
                     [&](const Database::Row &row) { account = row.integer(0); });
    return account;
}

std::optional<std::int64_t> Invitations::redeem(const std::string &token)
{
    std::optional<std::int64_t> account;
    m_database.query("DELETE FROM invitations WHERE fingerprint = ? AND expires_at > ?"
                     " RETURNING account_id",
                     {tokenFingerprint(token), toSeconds(m_clock.now())},
                     [&](const Database::Row &row) { account = row.integer(0); });
    return account;
}

} // namespace quellora::server
