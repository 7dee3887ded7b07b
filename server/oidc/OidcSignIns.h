#pragma once

#include "base/Clock.h"
#include "oidc/OidcProvider.h"
#include "store/Database.h"

#include <chrono>
#include <optional>
#include <string>

namespace quellora::server {

/// Sign-ins at the team's provider that have begun and not ended, on whichever instance.
/// Thread-safe. Each belongs to the browser that began it and is ended once.
class OidcSignIns
{
public:
    static constexpr std::chrono::seconds lifetime = std::chrono::minutes(10);

    OidcSignIns(Database &database, const Clock &clock) : m_database(database), m_clock(clock) {}

    /// Begins a sign-in of the browser that holds @p browser, a secret of its own.
    OidcAttempt begin(const std::string &browser, const std::string &redirect);
    /// The sign-in of that state and browser, which ends with this; nothing when it is unknown,
    /// expired, already ended or of another browser.
    std::optional<OidcAttempt> end(const std::string &state, const std::string &browser);

private:
    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
