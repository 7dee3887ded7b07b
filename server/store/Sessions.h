#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quellora::server {

/// A valid session.
struct Session
{
    std::string id;
    std::int64_t accountId = 0;
};

/// A new session with its token, of which only the fingerprint is stored.
struct IssuedSession
{
    std::string id;
    std::string token;
};

/// Bearer tokens, stored as fingerprints only. Thread-safe.
class Sessions
{
public:
    Sessions(Database &database, const Clock &clock, std::chrono::seconds lifetime,
             std::chrono::seconds handoverLifetime);

    /// A session for the app.
    IssuedSession issue(std::int64_t accountId);
    /// A short-lived token that the browser passes to the app, for one redeem().
    IssuedSession issueHandover(std::int64_t accountId);
    /// The session of @p token, or nothing when unknown or expired.
    std::optional<Session> find(const std::string &token);
    /// Whether the session was not ended.
    bool exists(const std::string &id);
    /// Invalidates a handover token and returns its account.
    std::optional<std::int64_t> redeem(const std::string &token);
    /// Ends all sessions of an account and returns their number. All instances learn of it.
    int revokeAll(std::int64_t accountId);

private:
    void purgeExpired();
    IssuedSession insert(std::int64_t accountId, const std::string &kind,
                         std::chrono::seconds lifetime);

    Database &m_database;
    const Clock &m_clock;
    std::chrono::seconds m_lifetime;
    std::chrono::seconds m_handoverLifetime;
};

} // namespace quellora::server
