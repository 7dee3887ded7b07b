#include "store/FormNonces.h"

#include "base/Secrets.h"

namespace quellora::server {

std::string FormNonces::key()
{
    const std::lock_guard lock(m_mutex);
    if (m_key.empty()) {
        m_database.transaction([&] {
            m_database.execute("INSERT INTO settings(name, value) VALUES('form_key', ?)"
                               " ON CONFLICT(name) DO NOTHING",
                               {randomToken()});
            m_database.query("SELECT value FROM settings WHERE name = 'form_key'", {},
                             [&](const Database::Row &row) { m_key = row.text(0); });
        });
    }
    return m_key;
}

std::string FormNonces::signature(const std::string &content)
{
    return keyedFingerprint(key(), m_scope + ' ' + content);
}

std::string FormNonces::issue()
{
    const auto expiry = toMilliseconds(m_clock.now() + std::chrono::minutes(10));
    const std::string content = std::to_string(expiry) + '.' + randomToken();
    return content + '.' + signature(content);
}

bool FormNonces::consume(const std::string &nonce)
{
    const std::size_t end = nonce.rfind('.');
    const std::string content = end == std::string::npos ? "" : nonce.substr(0, end);
    if (content.empty() || !isSameSecret(nonce.substr(end + 1), signature(content)))
        return false;
    const auto now = toMilliseconds(m_clock.now());
    const std::int64_t expiry = std::stoll(content);
    if (expiry <= now)
        return false;
    bool isNew = false;
    m_database.transaction([&] {
        isNew = m_database.execute("INSERT INTO form_nonces(fingerprint, scope, expires_at)"
                                   " VALUES(?, ?, ?) ON CONFLICT(fingerprint) DO NOTHING",
                                   {tokenFingerprint(nonce), m_scope, expiry}) > 0;
        m_database.execute("DELETE FROM form_nonces WHERE expires_at <= ? OR"
                           " fingerprint IN (SELECT fingerprint FROM form_nonces WHERE scope = ?"
                           " ORDER BY expires_at DESC LIMIT ? OFFSET ?)",
                           {now, m_scope, most, most});
    });
    return isNew;
}

} // namespace quellora::server
