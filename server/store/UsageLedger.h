#pragma once

#include "base/Clock.h"
#include "store/Accounts.h"
#include "store/Database.h"

#include <cstdint>

namespace quellora::server {

/// Tokens of one answer or one period.
struct TokenCount
{
    std::int64_t input = 0;
    std::int64_t output = 0;

    std::int64_t total() const { return input + output; }
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

/// Counts tokens per account and billing period (calendar month, UTC). Thread-safe.
class UsageLedger
{
public:
    /// The allowance reported for an account without a cap. The app treats an allowance of 0 as
    /// spent, so "no limit" is reported as a very large number.
    static constexpr std::int64_t unlimitedAllowance = 1000000000;

    UsageLedger(Database &database, const Clock &clock);

    void add(std::int64_t accountId, TokenCount tokens);
    TokenCount current(std::int64_t accountId);
    std::int64_t queries(std::int64_t accountId);
    /// Figures of the account in the current period.
    UsageFigures figures(const Account &account);
    /// Whether a capped account has nothing left.
    static bool spent(const Account &account, std::int64_t used);
    /// Whether a capped account has exceeded its cap by more than the tolerated quarter.
    static bool overdrawn(const Account &account, std::int64_t used);

private:
    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
