#pragma once

#include "base/Clock.h"
#include "base/Secrets.h"
#include "store/Database.h"

#include <cstdint>
#include <functional>
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
    /// "person-" and random digits: the name in the audit trail, which outlives the account.
    std::string person;
    std::int64_t createdAt = 0;
    /// Seconds since the epoch, 0 when never.
    std::int64_t lastSeenAt = 0;
    /// Whether there is no password yet.
    bool isInvited = false;
    /// Who vouches for the account at a single sign-on, and under which name; both may be empty.
    std::string oidcIssuer;
    std::string oidcSubject;
};

/// The accounts table. Thread-safe; all members may be used inside a transaction. E-mail addresses
/// must be normalised.
class Accounts
{
public:
    Accounts(Database &database, const PasswordHasher &hasher, const Clock &clock);

    /// Creates an account; nothing when the address is in use.
    std::optional<Account> create(const std::string &email, const std::string &password,
                                  const std::string &plan, std::int64_t tokenCap);
    /// Creates an account without password, which nobody can sign in to by password.
    std::optional<Account> createInvited(const std::string &email, const std::string &plan,
                                         std::int64_t tokenCap);
    std::optional<Account> find(std::int64_t id);
    std::optional<Account> findByEmail(const std::string &email);
    std::optional<Account> findByOidc(const std::string &issuer, const std::string &subject);
    /// All accounts, oldest first.
    std::vector<Account> all();
    /// The account when the password is right. Takes the same time for an unknown address.
    std::optional<Account> authenticate(const std::string &email, const std::string &password);

    /// The setters return whether the account exists. A new password ends all its sessions. All
    /// instances learn of suspensions, caps and removals.
    bool setPassword(const std::string &email, const std::string &password);
    bool setTokenCap(const std::string &email, std::int64_t tokenCap);
    bool setPlan(const std::string &email, const std::string &plan);
    bool setSuspended(const std::string &email, bool suspended);
    /// False also when another account has that name at the issuer.
    bool setOidc(const std::string &email, const std::string &issuer, const std::string &subject);
    /// Notes that the account was used; exact to five minutes.
    void touch(const Account &account);
    /// Removes the account with everything of that person, except entries of the audit trail.
    bool remove(const std::string &email);

private:
    std::optional<Account> insert(const std::string &email, const std::string &passwordHash,
                                  const std::string &plan, std::int64_t tokenCap);
    std::optional<Account> one(const std::string &condition,
                               const std::vector<Database::Value> &values);
    /// Runs @p change when the account exists, and tells the instances.
    bool changed(const std::string &email, const std::function<void(std::int64_t id)> &change);

    Database &m_database;
    const PasswordHasher &m_hasher;
    const Clock &m_clock;
};

} // namespace quellora::server
