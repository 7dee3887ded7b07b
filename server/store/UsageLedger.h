#pragma once

#include "base/Clock.h"
#include "store/Accounts.h"
#include "store/Database.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quellora::server {

/// Tokens of one answer or one period.
struct TokenCount
{
    std::int64_t input = 0;
    std::int64_t output = 0;

    std::int64_t total() const { return input + output; }
    bool operator==(const TokenCount &) const = default;
};

/// Usage as sent to the app.
struct UsageFigures
{
    std::int64_t used = 0;
    std::int64_t remaining = 0;
    std::int64_t cap = 0;
    bool warning75 = false;
    bool warning90 = false;
};

/// What an account used of one model on one day (UTC).
struct DailyUsage
{
    std::int64_t accountId = 0;
    /// "YYYY-MM-DD".
    std::string day;
    std::string model;
    TokenCount tokens;
    std::int64_t queries = 0;

    bool operator==(const DailyUsage &) const = default;
};

/// Counts tokens per account and billing period (calendar month, UTC), and per model and day.
/// Thread-safe.
class UsageLedger
{
public:
    /// The allowance reported for an account without a cap. The app treats an allowance of 0 as
    /// spent, so "no limit" is reported as a very large number.
    static constexpr std::int64_t unlimitedAllowance = 1000000000;

    UsageLedger(Database &database, const Clock &clock);

    /// Adds to the figures of that period and day, in the running transaction; negative numbers
    /// take away. Counts nothing for an account that no longer exists.
    void count(std::int64_t accountId, const std::string &period, const std::string &day,
               const std::string &model, TokenCount tokens, std::int64_t queries);
    TokenCount current(std::int64_t accountId);
    std::int64_t queries(std::int64_t accountId);
    /// Figures of the account in the current period.
    UsageFigures figures(const Account &account);
    /// Figures of the account when it has used that many tokens.
    static UsageFigures figures(const Account &account, std::int64_t used);
    /// All figures from @p firstDay to @p lastDay ("YYYY-MM-DD"), by day, account and model; those
    /// of one account when @p accountId is not 0.
    std::vector<DailyUsage> daily(const std::string &firstDay, const std::string &lastDay,
                                  std::int64_t accountId = 0);
    /// Whether a capped account has nothing left.
    static bool spent(const Account &account, std::int64_t used);
    /// Whether a capped account has exceeded its cap by more than the tolerated quarter.
    static bool overdrawn(const Account &account, std::int64_t used);

private:
    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
