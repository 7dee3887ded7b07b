#pragma once

#include "base/Clock.h"
#include "base/Secrets.h"
#include "store/Database.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

/// A user who may sign in.
struct Account
{
    std::int64_t id = 0;
    std::string email;
    std::string plan;
    /// Tokens allowed per billing period; 0 means no limit.
    std::int64_t tokenCap = 0;
    bool suspended = false;
};

/// The accounts table. Thread-safe. E-mail addresses must be normalised.
class Accounts
{
public:
    Accounts(Database &database, const PasswordHasher &hasher, const Clock &clock);

    /// Creates an account; nothing when the address is in use.
    std::optional<Account> create(const std::string &email, const std::string &password,
                                  const std::string &plan, std::int64_t tokenCap);
    std::optional<Account> find(std::int64_t id);
    std::optional<Account> findByEmail(const std::string &email);
    /// All accounts, oldest first.
    std::vector<Account> all();
    /// The account when the password is right. Takes the same time for an unknown address.
    std::optional<Account> authenticate(const std::string &email, const std::string &password);

    /// The setters return whether the account exists. A new password ends all its sessions.
    bool setPassword(const std::string &email, const std::string &password);
    bool setTokenCap(const std::string &email, std::int64_t tokenCap);
    bool setPlan(const std::string &email, const std::string &plan);
    bool setSuspended(const std::string &email, bool suspended);
    /// Removes the account with its sessions, usage and telemetry.
    bool remove(const std::string &email);

private:
    Database &m_database;
    const PasswordHasher &m_hasher;
    const Clock &m_clock;
};

} // namespace quellora::server
