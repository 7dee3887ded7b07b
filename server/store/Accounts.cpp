#include "store/Accounts.h"

namespace quellora::server {
namespace {

const std::string columns = "SELECT id, email, plan, token_cap, suspended FROM accounts ";

Account accountOf(const Database::Row &row)
{
    return Account{row.integer(0), row.text(1), row.text(2), row.integer(3), row.integer(4) != 0};
}

} // namespace

Accounts::Accounts(Database &database, const PasswordHasher &hasher, const Clock &clock)
    : m_database(database), m_hasher(hasher), m_clock(clock)
{}

std::optional<Account> Accounts::create(const std::string &email, const std::string &password,
                                        const std::string &plan, std::int64_t tokenCap)
{
    const int added = m_database.execute(
        "INSERT OR IGNORE INTO accounts(email, password_hash, plan, token_cap, created_at)"
        " VALUES(?, ?, ?, ?, ?)",
        {email, m_hasher.hash(password), plan, tokenCap, toSeconds(m_clock.now())});
    if (added == 0)
        return std::nullopt;
    return findByEmail(email);
}

std::optional<Account> Accounts::find(std::int64_t id)
{
    std::optional<Account> account;
    m_database.query(columns + "WHERE id = ?", {id},
                     [&](const Database::Row &row) { account = accountOf(row); });
    return account;
}

std::optional<Account> Accounts::findByEmail(const std::string &email)
{
    std::optional<Account> account;
    m_database.query(columns + "WHERE email = ?", {email},
                     [&](const Database::Row &row) { account = accountOf(row); });
    return account;
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

bool Accounts::setPassword(const std::string &email, const std::string &password)
{
    const std::string hash = m_hasher.hash(password);
    bool found = false;
    m_database.transaction([&] {
        found = m_database.execute("UPDATE accounts SET password_hash = ? WHERE email = ?",
                                   {hash, email}) > 0;
        m_database.execute("DELETE FROM sessions WHERE account_id ="
                           " (SELECT id FROM accounts WHERE email = ?)",
                           {email});
    });
    return found;
}

bool Accounts::setTokenCap(const std::string &email, std::int64_t tokenCap)
{
    return m_database.execute("UPDATE accounts SET token_cap = ? WHERE email = ?",
                              {tokenCap, email}) > 0;
}

bool Accounts::setPlan(const std::string &email, const std::string &plan)
{
    return m_database.execute("UPDATE accounts SET plan = ? WHERE email = ?", {plan, email}) > 0;
}

bool Accounts::setSuspended(const std::string &email, bool suspended)
{
    return m_database.execute("UPDATE accounts SET suspended = ? WHERE email = ?",
                              {std::int64_t{suspended ? 1 : 0}, email}) > 0;
}

bool Accounts::remove(const std::string &email)
{
    return m_database.execute("DELETE FROM accounts WHERE email = ?", {email}) > 0;
}

} // namespace quellora::server
