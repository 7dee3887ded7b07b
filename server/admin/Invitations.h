#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quellora::server {

/// Links by which invited people set their password: valid once and for a week. Only fingerprints
/// are stored. Thread-safe; usable inside a transaction.
class Invitations
{
public:
    static constexpr std::chrono::seconds lifetime = std::chrono::hours(24 * 7);

    Invitations(Database &database, const Clock &clock) : m_database(database), m_clock(clock) {}

    /// The token of a new link for the account; the account's earlier one is no longer valid.
    std::string issue(std::int64_t accountId);
    /// The account of a valid link, which stays valid.
    std::optional<std::int64_t> find(const std::string &token);
    /// Uses up a valid link and returns its account.
    std::optional<std::int64_t> redeem(const std::string &token);

private:
    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
