#include "store/AnswerLedger.h"

#include "base/Log.h"
#include "base/Secrets.h"
#include "base/Text.h"
#include "store/Changes.h"

#include <algorithm>
#include <limits>

namespace quellora::server {
namespace {

std::string lockOf(std::int64_t accountId)
{
    return topics::account(accountId);
}

} // namespace

/// A row of the answers.
struct AnswerLedger::Entry
{
    std::int64_t accountId = 0;
    std::string model;
    std::string state;
    std::string period;
    std::string day;
    std::int64_t estimate = 0;
    std::int64_t reserved = 0;
    TokenCount counted;
};

struct AnswerLedger::Room
{
    bool hasAccount = false;
    bool isSpent = false;
    int running = 0;
    std::int64_t others = 0;
    /// The most that one answer may reserve now.
    std::int64_t left = std::numeric_limits<std::int64_t>::max();
};

AnswerLedger::AnswerLedger(Database &database, const Clock &clock, std::string instance,
                           int concurrent)
    : m_database(database)
    , m_clock(clock)
    , m_usage(database, clock)
    , m_instance(std::move(instance))
    , m_concurrent(concurrent)
{}

std::int64_t AnswerLedger::leaseEnd() const
{
    return toSeconds(m_clock.now() + lease);
}

AnswerLedger::Room AnswerLedger::room(std::int64_t accountId, const std::string &period,
                                      const std::string &except)
{
    Room room;
    std::int64_t cap = 0;
    m_database.query("SELECT token_cap FROM accounts WHERE id = ? AND suspended = 0", {accountId},
                     [&](const Database::Row &row) {
                         room.hasAccount = true;
                         cap = row.integer(0);
                     });
    m_database.query("SELECT count(*), coalesce(sum(CASE WHEN period = ? THEN reserved ELSE 0 END),"
                     " 0) FROM answers WHERE account_id = ? AND state = 'running' AND id <> ?",
                     {period, accountId, except}, [&](const Database::Row &row) {
                         room.running = static_cast<int>(row.integer(0));
                         room.others = row.integer(1);
                     });
    if (cap == 0)
        return room;
    std::int64_t used = 0;
    m_database.query(
        "SELECT input_tokens + output_tokens FROM usage WHERE account_id = ? AND period = ?",
        {accountId, period}, [&](const Database::Row &row) { used = row.integer(0); });
    room.isSpent = used >= cap;
    // One below the quarter at which an answer is stopped.
    room.left = cap + cap / 4 - 1 - used - room.others;
    return room;
}

tl::expected<AdmittedAnswer, AnswerRefusal> AnswerLedger::begin(std::int64_t accountId,
                                                                const std::string &model,
                                                                std::int64_t estimate,
                                                                std::int64_t wanted)
{
    const auto now = m_clock.now();
    const std::string period = billingPeriod(now);
    const std::string id = randomUuid();
    tl::expected<AdmittedAnswer, AnswerRefusal> result;
    const auto admit = [&] {
        m_database.lockKey(lockOf(accountId));
        expire(accountId);
        const Room room = this->room(accountId, period, "");
        result = tl::make_unexpected(AnswerRefusal::Spent);
        if (!room.hasAccount)
            result = tl::make_unexpected(AnswerRefusal::NoAccount);
        else if (!room.isSpent && (room.running >= m_concurrent ||
                                   (room.left <= estimate && room.left + room.others > estimate)))
            result = tl::make_unexpected(AnswerRefusal::Busy);
        if (!room.hasAccount || room.isSpent || room.running >= m_concurrent ||
            room.left <= estimate)
            return;
        const AdmittedAnswer answer{id, std::min(std::max(wanted, estimate + 1), room.left)};
        m_database.execute(
            "INSERT INTO answers(id, account_id, model, instance, state, period, day,"
            " started_at, expires_at, estimate, reserved)"
            " VALUES(?, ?, ?, ?, 'running', ?, ?, ?, ?, ?, ?)",
            {id, accountId, model, m_instance, period, isoDay(now), toSeconds(now), leaseEnd(),
             estimate, answer.reserved});
        result = answer;
    };
    try {
        // What a power failure takes away here ends with it.
        m_database.transaction(admit, Database::Work::Relaxed);
    } catch (const DatabaseError &problem) {
        // The store may have it, and this instance would renew its lease.
        if (problem.kind() == DatabaseError::Kind::Uncertain)
            endLater({id, {}, 0});
        throw;
    }
    return result;
}

std::optional<AnswerLedger::Entry> AnswerLedger::find(const std::string &id)
{
    std::optional<Entry> entry;
    m_database.query("SELECT account_id, model, state, period, day, estimate, reserved,"
                     " input_tokens, output_tokens FROM answers WHERE id = ?",
                     {id}, [&](const Database::Row &row) {
                         entry = Entry{row.integer(0), row.text(1),
                                       row.text(2),    row.text(3),
                                       row.text(4),    row.integer(5),
                                       row.integer(6), {row.integer(7), row.integer(8)}};
                     });
    return entry;
}

tl::expected<std::int64_t, AnswerRefusal>
AnswerLedger::extend(const std::string &id, std::int64_t needed, std::int64_t wanted)
{
    tl::expected<std::int64_t, AnswerRefusal> result;
    m_database.transaction(
        [&] {
            result = tl::make_unexpected(AnswerRefusal::NoAccount);
            const auto known = find(id);
            if (!known)
                return;
            m_database.lockKey(lockOf(known->accountId));
            auto entry = find(id);
            if (!entry || entry->state == "settled")
                return;
            if (entry->state == "expired")
                reopen(id, *entry);
            const Room room = this->room(entry->accountId, entry->period, id);
            if (!room.hasAccount)
                return;
            result = tl::make_unexpected(AnswerRefusal::Spent);
            if (room.left < needed)
                return;
            result = std::max(entry->reserved, std::min(std::max(wanted, needed), room.left));
            m_database.execute("UPDATE answers SET reserved = ?, expires_at = ? WHERE id = ?",
                               {*result, leaseEnd(), id});
        },
        Database::Work::RelaxedRepeatable);
    return result;
}

void AnswerLedger::takeBack(const Entry &entry)
{
    const TokenCount less{-entry.counted.input, -entry.counted.output};
    m_usage.count(entry.accountId, entry.period, entry.day, entry.model, less, -1);
}

void AnswerLedger::reopen(const std::string &id, Entry &entry)
{
    takeBack(entry);
    entry.state = "running";
    entry.reserved = entry.counted.total();
    entry.counted = {};
    m_database.execute("UPDATE answers SET state = 'running', reserved = ?, expires_at = ?,"
                       " input_tokens = 0, output_tokens = 0 WHERE id = ?",
                       {entry.reserved, leaseEnd(), id});
}

bool AnswerLedger::close(const Ended &ended, const char *state)
{
    const auto known = find(ended.id);
    if (!known || known->state == "settled")
        return false;
    m_database.lockKey(lockOf(known->accountId));
    auto entry = find(ended.id);
    if (!entry || entry->state == "settled" || entry->state == state)
        return false;
    // An expired answer was counted with what was reserved for it.
    if (entry->state == "expired")
        takeBack(*entry);
    const std::string &model = ended.model.empty() ? entry->model : ended.model;
    const TokenCount &tokens = ended.tokens;
    m_database.execute("UPDATE answers SET state = ?, expires_at = ?, reserved = 0,"
                       " input_tokens = ?, output_tokens = ?, model = ? WHERE id = ?",
                       {std::string(state), toSeconds(m_clock.now()), tokens.input, tokens.output,
                        model, ended.id});
    m_usage.count(entry->accountId, entry->period, entry->day, model, tokens, ended.queries);
    return true;
}

bool AnswerLedger::end(const Ended &ended)
{
    bool isCounted = false;
    m_database.transaction([&] { isCounted = close(ended, "settled"); },
                           Database::Work::RelaxedRepeatable);
    return isCounted;
}

bool AnswerLedger::endAtLast(const Ended &ended)
{
    try {
        return end(ended);
    } catch (const DatabaseError &problem) {
        Log::event(std::string("[AnswerLedger] WARNING: An answer is counted later: ") +
                   problem.what());
        endLater(ended);
        return false;
    }
}

void AnswerLedger::endLater(const Ended &ended)
{
    const std::lock_guard lock(m_mutex);
    m_unsettled.push_back(ended);
}

bool AnswerLedger::settle(const std::string &id, TokenCount tokens)
{
    return end({id, tokens, 1});
}

bool AnswerLedger::settleAtLast(const std::string &id, TokenCount tokens, const std::string &model)
{
    return endAtLast({id, tokens, 1, model});
}

void AnswerLedger::release(const std::string &id)
{
    endAtLast({id, {}, 0});
}

void AnswerLedger::renew()
{
    m_database.execute("UPDATE answers SET expires_at = ? WHERE instance = ? AND state = 'running'",
                       {leaseEnd(), m_instance});
    std::vector<Ended> unsettled;
    {
        const std::lock_guard lock(m_mutex);
        unsettled.swap(m_unsettled);
    }
    for (std::size_t i = 0; i < unsettled.size(); ++i) {
        try {
            end(unsettled[i]);
        } catch (const DatabaseError &) {
            const std::lock_guard lock(m_mutex);
            // Behind the others, lest it always keeps them waiting.
            m_unsettled.insert(m_unsettled.end(), unsettled.begin() + i + 1, unsettled.end());
            m_unsettled.push_back(unsettled[i]);
            throw;
        }
    }
}

int AnswerLedger::expire(std::int64_t accountId)
{
    std::vector<std::string> ids;
    m_database.query("SELECT id FROM answers WHERE state = 'running' AND expires_at <= ?"
                     " AND (account_id = ? OR ? = 0)",
                     {toSeconds(m_clock.now()), accountId, accountId},
                     [&](const Database::Row &row) { ids.push_back(row.text(0)); });
    int ended = 0;
    for (const std::string &id : ids) {
        m_database.transaction([&] {
            const auto known = find(id);
            if (!known)
                return;
            m_database.lockKey(lockOf(known->accountId));
            // The lease may have been renewed meanwhile.
            std::optional<TokenCount> reserved;
            m_database.query(
                "SELECT estimate, reserved FROM answers WHERE id = ?"
                " AND state = 'running' AND expires_at <= ?",
                {id, toSeconds(m_clock.now())}, [&](const Database::Row &row) {
                    reserved = TokenCount{row.integer(0), row.integer(1) - row.integer(0)};
                });
            if (reserved && close({id, *reserved, 1}, "expired"))
                ++ended;
        });
    }
    return ended;
}

int AnswerLedger::running(std::int64_t accountId)
{
    std::int64_t count = 0;
    m_database.query("SELECT count(*) FROM answers WHERE account_id = ? AND state = 'running'"
                     " AND expires_at > ?",
                     {accountId, toSeconds(m_clock.now())},
                     [&](const Database::Row &row) { count = row.integer(0); });
    return static_cast<int>(count);
}

} // namespace quellora::server
