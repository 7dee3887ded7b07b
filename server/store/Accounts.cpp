#include "store/Accounts.h"

#include "store/Changes.h"
#include "store/RateLimiter.h"

namespace quellora::server {
namespace {

const std::string columns = "SELECT id, email, plan, token_cap, suspended, person, created_at,"
                            " last_seen_at, password_hash, oidc_issuer, oidc_subject"
                            " FROM accounts ";
constexpr std::int64_t seenExactness = 300;

Account accountOf(const Database::Row &row)
{
    return Account{row.integer(0),      row.text(1), row.text(2),    row.integer(3),
                   row.integer(4) != 0, row.text(5), row.integer(6), row.integer(7),
                   row.text(8).empty(), row.text(9), row.text(10)};
}

} // namespace

Accounts::Accounts(Database &database, const PasswordHasher &hasher, const Clock &clock)
    : m_database(database), m_hasher(hasher), m_clock(clock)
{}

std::optional<Account> Accounts::insert(const std::string &email, const std::string &passwordHash,
                                        const std::string &plan, std::int64_t tokenCap)
{
    const int added = m_database.execute(
        std::string(
            "INSERT INTO accounts(email, password_hash, plan, token_cap, created_at, person)"
            " VALUES(?, ?, ?, ?, ?, 'person-' || ") +
            m_database.dialect().randomKey + ") ON CONFLICT(email) DO NOTHING",
        {email, passwordHash, plan, tokenCap, toSeconds(m_clock.now())});
    if (added == 0)
        return std::nullopt;
    return findByEmail(email);
}

std::optional<Account> Accounts::create(const std::string &email, const std::string &password,
                                        const std::string &plan, std::int64_t tokenCap)
{
    return insert(email, m_hasher.hash(password), plan, tokenCap);
}

std::optional<Account> Accounts::createInvited(const std::string &email, const std::string &plan,
                                               std::int64_t tokenCap)
{
    return insert(email, "", plan, tokenCap);
}

std::optional<Account> Accounts::one(const std::string &condition,
                                     const std::vector<Database::Value> &values)
{
    std::optional<Account> account;
    m_database.query(columns + condition, values,
                     [&](const Database::Row &row) { account = accountOf(row); });
    return account;
}

std::optional<Account> Accounts::find(std::int64_t id)
{
    return one("WHERE id = ?", {id});
}

std::optional<Account> Accounts::findByEmail(const std::string &email)
{
    return one("WHERE email = ?", {email});
}

std::optional<Account> Accounts::findByOidc(const std::string &issuer, const std::string &subject)
{
    return one("WHERE oidc_issuer = ? AND oidc_subject = ?", {issuer, subject});
}

std::vector<Account> Accounts::all()
{
    std::vector<Account> accounts;
    m_database.query(columns + "ORDER BY id", {},
                     [&](const Database::Row &row) { accounts.push_back(accountOf(row)); });
    return accounts;
}

std::optional<Account> Accounts::authenticate(const std::string &email, const std::string &password)
{
    std::string hash;
    // A text that cannot be stored is nobody's address.
    if (isStorableText(email))
        m_database.query("SELECT password_hash FROM accounts WHERE email = ?", {email},
                         [&](const Database::Row &row) { hash = row.text(0); });
    if (hash.empty()) {
        m_hasher.verifyNobody(password);
        return std::nullopt;
    }
    if (!m_hasher.verify(hash, password))
        return std::nullopt;
    return findByEmail(email);
}

bool Accounts::changed(const std::string &email, const std::function<void(std::int64_t id)> &change)
{
    std::optional<Account> account;
    m_database.transaction([&] {
        account = findByEmail(email);
        if (!account)
            return;
        change(account->id);
        publishChange(m_database, m_clock, topics::account(account->id));
    });
    return account.has_value();
}

bool Accounts::setPassword(const std::string &email, const std::string &password)
{
    const std::string hash = m_hasher.hash(password);
    return changed(email, [&](std::int64_t id) {
        m_database.execute("UPDATE accounts SET password_hash = ? WHERE id = ?", {hash, id});
        m_database.execute("DELETE FROM sessions WHERE account_id = ?", {id});
    });
}

bool Accounts::setTokenCap(const std::string &email, std::int64_t tokenCap)
{
    return changed(email, [&](std::int64_t id) {
        m_database.execute("UPDATE accounts SET token_cap = ? WHERE id = ?", {tokenCap, id});
    });
}

bool Accounts::setPlan(const std::string &email, const std::string &plan)
{
    return m_database.execute("UPDATE accounts SET plan = ? WHERE email = ?", {plan, email}) > 0;
}

bool Accounts::setSuspended(const std::string &email, bool suspended)
{
    return changed(email, [&](std::int64_t id) {
        m_database.execute("UPDATE accounts SET suspended = ? WHERE id = ?",
                           {std::int64_t{suspended ? 1 : 0}, id});
    });
}

bool Accounts::setOidc(const std::string &email, const std::string &issuer,
                       const std::string &subject)
{
    bool isSet = false;
    m_database.transaction([&] {
        m_database.lockKey("oidc");
        isSet = !findByOidc(issuer, subject) &&
                m_database.execute(
                    "UPDATE accounts SET oidc_issuer = ?, oidc_subject = ? WHERE email = ?",
                    {issuer, subject, email}) > 0;
    });
    return isSet;
}

void Accounts::touch(const Account &account)
{
    const std::int64_t now = toSeconds(m_clock.now());
    if (account.lastSeenAt <= now - seenExactness)
        m_database.execute("UPDATE accounts SET last_seen_at = ? WHERE id = ?", {now, account.id});
}

bool Accounts::remove(const std::string &email)
{
    return changed(email, [&](std::int64_t id) {
        m_database.execute("DELETE FROM accounts WHERE id = ?", {id});
        // A fingerprint of an address can be compared with that of a guessed one.
        for (const std::string &key : {email, std::to_string(id)})
            forgetRates(m_database, key);
    });
}

} // namespace quellora::server
