#include "admin/Administrators.h"

#include "admin/Totp.h"
#include "base/Text.h"

#include <algorithm>

namespace quellora::server {
namespace {

constexpr const char *issuer = "Quellora";
/// Longest code that is looked at; recovery codes have 23 characters.
constexpr std::size_t longestCode = 40;

Administrator administratorOf(const Database::Row &row)
{
    return {row.integer(0), row.text(1), row.text(2), row.integer(3)};
}

const std::string columns = "SELECT id, email, name, created_at FROM admins ";

std::string secretOf(const std::string &stored)
{
    return totp::base32Decoded(stored).value_or("");
}

} // namespace

Enrolment Administrators::enrol(const std::string &email, const std::string &password)
{
    const std::string hash = m_hasher.hash(password);
    const std::string secret = totp::newSecret();
    const std::string name = "admin-" + randomUuid();
    Enrolment enrolment;
    enrolment.uri = totp::uri(issuer, email, secret);
    m_database.transaction([&] {
        m_database.execute(
            "INSERT INTO admins(email, name, password_hash, totp_secret, totp_last_step, "
            "created_at)"
            " VALUES(?, ?, ?, ?, 0, ?) ON CONFLICT(email) DO UPDATE SET"
            " password_hash = excluded.password_hash, totp_secret = excluded.totp_secret,"
            " totp_pending = '', totp_last_step = 0",
            {email, name, hash, totp::base32(secret), toSeconds(m_clock.now())});
        const std::int64_t id = findByEmail(email)->id;
        m_database.execute("DELETE FROM admin_sessions WHERE admin_id = ?", {id});
        enrolment.recoveryCodes = renewRecoveryCodes(id);
    });
    return enrolment;
}

bool Administrators::remove(const std::string &email)
{
    return m_database.execute("DELETE FROM admins WHERE email = ?", {email}) > 0;
}

std::optional<Administrator> Administrators::one(const std::string &condition,
                                                 const Database::Value &value)
{
    std::optional<Administrator> found;
    m_database.query(columns + condition, {value},
                     [&](const Database::Row &row) { found = administratorOf(row); });
    return found;
}

std::optional<Administrator> Administrators::find(std::int64_t id)
{
    return one("WHERE id = ?", id);
}

std::optional<Administrator> Administrators::findByEmail(const std::string &email)
{
    return isStorableText(email) ? one("WHERE email = ?", email) : std::nullopt;
}

std::vector<Administrator> Administrators::all()
{
    std::vector<Administrator> list;
    m_database.query(columns + "ORDER BY email", {},
                     [&](const Database::Row &row) { list.push_back(administratorOf(row)); });
    return list;
}

std::string Administrators::textOf(std::int64_t id, const std::string &column)
{
    std::string text;
    m_database.query("SELECT " + column + " FROM admins WHERE id = ?", {id},
                     [&](const Database::Row &row) { text = row.text(0); });
    return text;
}

std::optional<Administrator> Administrators::authenticate(const std::string &email,
                                                          const std::string &password,
                                                          const std::string &code)
{
    auto found = findByEmail(email);
    if (!found) {
        m_hasher.verifyNobody(password);
        return std::nullopt;
    }
    if (!m_hasher.verify(textOf(found->id, "password_hash"), password) ||
        !acceptCode(found->id, code))
        return std::nullopt;
    return found;
}

bool Administrators::acceptCode(std::int64_t id, const std::string &code)
{
    std::string entered = lowered(trimmed(code.substr(0, longestCode)));
    std::string digits = entered;
    // Apps show "123 456".
    std::erase(digits, ' ');
    std::int64_t last = 0;
    m_database.query("SELECT totp_last_step FROM admins WHERE id = ?", {id},
                     [&](const Database::Row &row) { last = row.integer(0); });
    const auto step =
        totp::acceptedStep(secretOf(textOf(id, "totp_secret")), digits, m_clock.now(), last);
    // The condition lets one of several instances win.
    if (step)
        return m_database.execute(
                   "UPDATE admins SET totp_last_step = ? WHERE id = ? AND totp_last_step < ?",
                   {*step, id, *step}) > 0;
    return m_database.execute("DELETE FROM admin_recovery WHERE admin_id = ? AND fingerprint = ?",
                              {id, tokenFingerprint(entered)}) > 0;
}

int Administrators::recoveryCodesLeft(std::int64_t id)
{
    std::int64_t left = 0;
    m_database.query("SELECT count(*) FROM admin_recovery WHERE admin_id = ?", {id},
                     [&](const Database::Row &row) { left = row.integer(0); });
    return static_cast<int>(left);
}

std::vector<std::string> Administrators::renewRecoveryCodes(std::int64_t id)
{
    std::vector<std::string> codes;
    m_database.execute("DELETE FROM admin_recovery WHERE admin_id = ?", {id});
    for (int i = 0; i < recoveryCodeCount; ++i) {
        codes.push_back(randomPassword());
        m_database.execute("INSERT INTO admin_recovery(admin_id, fingerprint) VALUES(?, ?)",
                           {id, tokenFingerprint(codes.back())});
    }
    return codes;
}

std::string Administrators::proposeSecret(std::int64_t id)
{
    const std::string secret = totp::newSecret();
    m_database.execute("UPDATE admins SET totp_pending = ? WHERE id = ?",
                       {totp::base32(secret), id});
    return totp::uri(issuer, textOf(id, "email"), secret);
}

std::optional<std::string> Administrators::proposedUri(std::int64_t id)
{
    const std::string pending = textOf(id, "totp_pending");
    if (pending.empty())
        return std::nullopt;
    return totp::uri(issuer, textOf(id, "email"), secretOf(pending));
}

std::optional<std::vector<std::string>> Administrators::confirmSecret(std::int64_t id,
                                                                      const std::string &code)
{
    std::string digits = code.substr(0, longestCode);
    std::erase(digits, ' ');
    const std::string pending = textOf(id, "totp_pending");
    const auto step = totp::acceptedStep(secretOf(pending), digits, m_clock.now(), 0);
    if (pending.empty() || !step)
        return std::nullopt;
    std::optional<std::vector<std::string>> codes;
    m_database.transaction([&] {
        codes.reset();
        if (m_database.execute("UPDATE admins SET totp_secret = ?, totp_pending = '',"
                               " totp_last_step = ? WHERE id = ? AND totp_pending = ?",
                               {pending, *step, id, pending}) > 0)
            codes = renewRecoveryCodes(id);
    });
    return codes;
}

} // namespace quellora::server
