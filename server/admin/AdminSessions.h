#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quellora::server {

/// Sessions of administrators in the browser. Only fingerprints of their tokens are stored.
/// Thread-safe.
class AdminSessions
{
public:
    /// A session ends after this time without a request,
    static constexpr std::chrono::seconds idle = std::chrono::minutes(30);
    /// and after this time in any case.
    static constexpr std::chrono::seconds longest = std::chrono::hours(12);

    AdminSessions(Database &database, const Clock &clock) : m_database(database), m_clock(clock) {}

    /// Begins a session and returns its token, always a new one. Removes those that have ended.
    std::string begin(std::int64_t administrator);
    /// The administrator of the session, or nothing. Counts as use.
    std::optional<std::int64_t> find(const std::string &token);
    void end(const std::string &token);
    /// Ends all sessions of the administrator but that of @p token.
    void endOthers(std::int64_t administrator, const std::string &token);
    /// What a form must carry to belong to the session. Not the token itself, so that no page
    /// contains it.
    static std::string formToken(const std::string &token);

private:
    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
