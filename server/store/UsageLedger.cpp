#include "store/UsageLedger.h"

#include "base/Text.h"

#include <algorithm>

namespace quellora::server {

UsageLedger::UsageLedger(Database &database, const Clock &clock)
    : m_database(database), m_clock(clock)
{}

void UsageLedger::count(std::int64_t accountId, const std::string &period, const std::string &day,
                        const std::string &model, TokenCount tokens, std::int64_t queries)
{
    // Counts nothing when the account was deleted while its answer was running.
    m_database.execute("INSERT INTO usage(account_id, period, input_tokens, output_tokens, queries)"
                       " SELECT id, ?, ?, ?, ? FROM accounts WHERE id = ?"
                       " ON CONFLICT(account_id, period) DO UPDATE SET"
                       " input_tokens = usage.input_tokens + excluded.input_tokens,"
                       " output_tokens = usage.output_tokens + excluded.output_tokens,"
                       " queries = usage.queries + excluded.queries",
                       {period, tokens.input, tokens.output, queries, accountId});
    m_database.execute(
        "INSERT INTO usage_daily(account_id, day, model, input_tokens, output_tokens, queries)"
        " SELECT id, ?, ?, ?, ?, ? FROM accounts WHERE id = ?"
        " ON CONFLICT(account_id, day, model) DO UPDATE SET"
        " input_tokens = usage_daily.input_tokens + excluded.input_tokens,"
        " output_tokens = usage_daily.output_tokens + excluded.output_tokens,"
        " queries = usage_daily.queries + excluded.queries",
        {day, model, tokens.input, tokens.output, queries, accountId});
}

std::vector<DailyUsage> UsageLedger::daily(const std::string &firstDay, const std::string &lastDay,
                                           std::int64_t accountId)
{
    std::vector<DailyUsage> list;
    m_database.query(
        "SELECT account_id, day, model, input_tokens, output_tokens, queries FROM usage_daily"
        " WHERE day >= ? AND day <= ? AND (account_id = ? OR ? = 0)"
        " ORDER BY day, account_id, model",
        {firstDay, lastDay, accountId, accountId}, [&](const Database::Row &row) {
            list.push_back({row.integer(0),
                            row.text(1),
                            row.text(2),
                            {row.integer(3), row.integer(4)},
                            row.integer(5)});
        });
    return list;
}

TokenCount UsageLedger::current(std::int64_t accountId)
{
    TokenCount count;
    m_database.query(
        "SELECT input_tokens, output_tokens FROM usage WHERE account_id = ? AND period = ?",
        {accountId, billingPeriod(m_clock.now())}, [&](const Database::Row &row) {
            count = TokenCount{row.integer(0), row.integer(1)};
        });
    return count;
}

std::int64_t UsageLedger::queries(std::int64_t accountId)
{
    std::int64_t count = 0;
    m_database.query("SELECT queries FROM usage WHERE account_id = ? AND period = ?",
                     {accountId, billingPeriod(m_clock.now())},
                     [&](const Database::Row &row) { count = row.integer(0); });
    return count;
}

UsageFigures UsageLedger::figures(const Account &account)
{
    return figures(account, current(account.id).total());
}

UsageFigures UsageLedger::figures(const Account &account, std::int64_t used)
{
    UsageFigures figures;
    figures.used = used;
    figures.cap = account.tokenCap > 0 ? account.tokenCap : unlimitedAllowance;
    figures.remaining = std::max<std::int64_t>(figures.cap - figures.used, 0);
    if (account.tokenCap > 0) {
        figures.warning75 = figures.used * 100 >= account.tokenCap * 75;
        figures.warning90 = figures.used * 100 >= account.tokenCap * 90;
    } else {
        figures.remaining = std::max<std::int64_t>(figures.remaining, 1);
    }
    return figures;
}

bool UsageLedger::spent(const Account &account, std::int64_t used)
{
    return account.tokenCap > 0 && used >= account.tokenCap;
}

bool UsageLedger::overdrawn(const Account &account, std::int64_t used)
{
    return account.tokenCap > 0 && used - account.tokenCap >= account.tokenCap / 4;
}

} // namespace quellora::server
