#include "oidc/OidcSignIns.h"

#include "base/Secrets.h"

namespace quellora::server {

OidcAttempt OidcSignIns::begin(const std::string &browser, const std::string &redirect)
{
    const TimePoint now = m_clock.now();
    OidcAttempt attempt{randomToken(), randomToken(), randomToken(), redirect};
    m_database.execute("DELETE FROM oidc_sign_ins WHERE expires_at <= ?", {toSeconds(now)});
    m_database.execute("INSERT INTO oidc_sign_ins(state, browser, nonce, verifier, redirect,"
                       " expires_at) VALUES(?, ?, ?, ?, ?, ?)",
                       {tokenFingerprint(attempt.state), tokenFingerprint(browser), attempt.nonce,
                        attempt.verifier, redirect, toSeconds(now + lifetime)});
    return attempt;
}

std::optional<OidcAttempt> OidcSignIns::end(const std::string &state, const std::string &browser)
{
    std::optional<OidcAttempt> attempt;
    m_database.query("DELETE FROM oidc_sign_ins WHERE state = ? AND browser = ? AND expires_at > ?"
                     " RETURNING nonce, verifier, redirect",
                     {tokenFingerprint(state), tokenFingerprint(browser), toSeconds(m_clock.now())},
                     [&](const Database::Row &row) {
                         attempt = OidcAttempt{state, row.text(0), row.text(1), row.text(2)};
                     });
    return attempt;
}

} // namespace quellora::server
