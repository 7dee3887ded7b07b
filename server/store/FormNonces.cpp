#include "store/FormNonces.h"

#include "base/Secrets.h"

namespace quellora::server {

std::string FormNonces::issue()
{
    std::string nonce = randomToken();
    const auto now = m_clock.now();
    m_database.transaction(
        [&] {
            m_database.execute("DELETE FROM form_nonces WHERE expires_at <= ? OR"
                               " fingerprint IN (SELECT fingerprint FROM form_nonces"
                               " ORDER BY expires_at DESC LIMIT ? OFFSET ?)",
                               {toMilliseconds(now), most, most - 1});
            m_database.execute(
                "INSERT INTO form_nonces(fingerprint, scope, expires_at) VALUES(?, ?, ?)",
                {tokenFingerprint(nonce), m_scope, toMilliseconds(now + std::chrono::minutes(10))});
        },
        Database::Work::Relaxed);
    return nonce;
}

bool FormNonces::consume(const std::string &nonce)
{
    return m_database.execute(
               "DELETE FROM form_nonces WHERE fingerprint = ? AND scope = ? AND expires_at > ?",
               {tokenFingerprint(nonce), m_scope, toMilliseconds(m_clock.now())}) > 0;
}

} // namespace quellora::server
