#include "store/Sessions.h"

#include "base/Secrets.h"
#include "store/Changes.h"

namespace quellora::server {

Sessions::Sessions(Database &database, const Clock &clock, std::chrono::seconds lifetime,
                   std::chrono::seconds handoverLifetime)
    : m_database(database)
    , m_clock(clock)
    , m_lifetime(lifetime)
    , m_handoverLifetime(handoverLifetime)
{}

IssuedSession Sessions::insert(std::int64_t accountId, const std::string &kind,
                               std::chrono::seconds lifetime)
{
    IssuedSession session{randomUuid(), randomToken()};
    const auto now = m_clock.now();
    m_database.execute(
        "INSERT INTO sessions(id, fingerprint, account_id, kind, created_at, expires_at)"
        " VALUES(?, ?, ?, ?, ?, ?)",
        {session.id, tokenFingerprint(session.token), accountId, kind, toSeconds(now),
         toSeconds(now + lifetime)});
    return session;
}

IssuedSession Sessions::issue(std::int64_t accountId)
{
    purgeExpired();
    return insert(accountId, "app", m_lifetime);
}

IssuedSession Sessions::issueHandover(std::int64_t accountId)
{
    purgeExpired();
    return insert(accountId, "handover", m_handoverLifetime);
}

std::optional<Session> Sessions::find(const std::string &token)
{
    std::optional<Session> session;
    m_database.query("SELECT id, account_id FROM sessions"
                     " WHERE fingerprint = ? AND kind = 'app' AND expires_at > ?",
                     {tokenFingerprint(token), toSeconds(m_clock.now())},
                     [&](const Database::Row &row) {
                         session = Session{row.text(0), row.integer(1)};
                     });
    return session;
}

bool Sessions::exists(const std::string &id)
{
    bool isThere = false;
    m_database.query("SELECT 1 FROM sessions WHERE id = ?", {id},
                     [&](const Database::Row &) { isThere = true; });
    return isThere;
}

std::optional<std::int64_t> Sessions::redeem(const std::string &token)
{
    std::optional<std::int64_t> account;
    m_database.query("DELETE FROM sessions WHERE fingerprint = ? AND kind = 'handover'"
                     " AND expires_at > ? RETURNING account_id",
                     {tokenFingerprint(token), toSeconds(m_clock.now())},
                     [&](const Database::Row &row) { account = row.integer(0); });
    return account;
}

int Sessions::revokeAll(std::int64_t accountId)
{
    int ended = 0;
    m_database.transaction([&] {
        ended = m_database.execute("DELETE FROM sessions WHERE account_id = ?", {accountId});
        publishChange(m_database, m_clock, topics::account(accountId));
    });
    return ended;
}

void Sessions::purgeExpired()
{
    m_database.execute("DELETE FROM sessions WHERE expires_at <= ?", {toSeconds(m_clock.now())});
}

} // namespace quellora::server
