#pragma once

#include "base/Clock.h"
#include "base/Secrets.h"
#include "store/Database.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

/// Somebody who may use the pages below /admin. Administrators are no accounts of the app.
struct Administrator
{
    std::int64_t id = 0;
    std::string email;
    /// "admin-" and random digits: the name in the audit trail, which outlives the administrator.
    std::string name;
    std::int64_t createdAt = 0;
};

/// What an authenticator app is set up with. Shown once.
struct Enrolment
{
    /// otpauth address with the secret.
    std::string uri;
    /// Each replaces one code of the app, once.
    std::vector<std::string> recoveryCodes;
};

/// The administrators with their passwords and second factors. Thread-safe; usable inside a
/// transaction. E-mail addresses must be normalised.
class Administrators
{
public:
    static constexpr int recoveryCodeCount = 10;

    Administrators(Database &database, const PasswordHasher &hasher, const Clock &clock)
        : m_database(database), m_hasher(hasher), m_clock(clock)
    {}

    /// Creates the administrator, or gives an existing one another password and second factor and
    /// ends the sessions.
    Enrolment enrol(const std::string &email, const std::string &password);
    bool remove(const std::string &email);
    std::optional<Administrator> find(std::int64_t id);
    std::optional<Administrator> findByEmail(const std::string &email);
    std::vector<Administrator> all();

    /// The administrator when password and code are right. @p code is of the authenticator app or a
    /// recovery code; neither is accepted twice, on whichever instance. Takes the same time for an
    /// unknown address.
    std::optional<Administrator> authenticate(const std::string &email, const std::string &password,
                                              const std::string &code);
    /// Whether @p code is right; uses it up.
    bool acceptCode(std::int64_t id, const std::string &code);
    int recoveryCodesLeft(std::int64_t id);

    /// Makes up a secret for another authenticator app and returns its address. The old one stays
    /// in force until confirmSecret().
    std::string proposeSecret(std::int64_t id);
    /// Puts the proposed secret in force when @p code is of it; returns new recovery codes.
    std::optional<std::vector<std::string>> confirmSecret(std::int64_t id, const std::string &code);
    /// The address of the proposed secret; nothing when there is none.
    std::optional<std::string> proposedUri(std::int64_t id);

private:
    std::optional<Administrator> one(const std::string &condition, const Database::Value &value);
    std::string textOf(std::int64_t id, const std::string &column);
    std::vector<std::string> renewRecoveryCodes(std::int64_t id);

    Database &m_database;
    const PasswordHasher &m_hasher;
    const Clock &m_clock;
};

} // namespace quellora::server
