#pragma once

#include "store/UsageLedger.h"

#include <tl/expected.hpp>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

/// An answer that may run, and the tokens that are reserved for it.
struct AdmittedAnswer
{
    std::string id;
    std::int64_t reserved = 0;
};

/// Why an answer may not run.
enum class AnswerRefusal {
    /// The account is gone or suspended.
    NoAccount,
    /// The allowance is used up, or the question alone would exceed it by more than is tolerated.
    Spent,
    /// As many answers run as may, or they have reserved what is left. Some will end.
    Busy,
};

/// The running answers of all instances and what they may cost. Before a model is asked, tokens are
/// reserved; they are settled once, when the answer ends. Settled and reserved tokens of an account
/// together stay below 125 % of its cap, whichever instances its answers run on.
///
/// A running answer is leased: its instance renews the lease. An answer whose lease has expired,
/// since its instance died or was cut off, no longer counts as running, and its reservation counts
/// as usage: the estimate as input and the rest as output. When its instance settles it after all,
/// the figures are put right. An answer counts for the month and the day in which it began.
///
/// Thread-safe.
class AnswerLedger
{
public:
    /// How long a lease lasts, and the pause between renewals.
    static constexpr std::chrono::seconds lease{30};
    static constexpr std::chrono::seconds renewal{8};

    /// @p instance tells this process from all others.
    AnswerLedger(Database &database, const Clock &clock, std::string instance, int concurrent);

    /// Admits an answer whose question has about @p estimate tokens, and reserves up to @p wanted
    /// tokens, more than the estimate at least.
    tl::expected<AdmittedAnswer, AnswerRefusal> begin(std::int64_t accountId,
                                                      const std::string &model,
                                                      std::int64_t estimate, std::int64_t wanted);
    /// Raises the reservation of a running answer up to @p wanted and returns it: Spent when less
    /// than @p needed is left, NoAccount also when the answer has been settled. One whose lease
    /// expired though it still runs gets a new lease.
    tl::expected<std::int64_t, AnswerRefusal> extend(const std::string &id, std::int64_t needed,
                                                     std::int64_t wanted);
    /// Counts the answer, and ends its reservation. Returns whether it was counted now; doing it
    /// again changes nothing.
    bool settle(const std::string &id, TokenCount tokens);
    /// Like settle(), but a store that cannot be reached is tried again by each renew(). Returns
    /// whether it was counted now. @p model has answered; empty: the one of begin().
    bool settleAtLast(const std::string &id, TokenCount tokens, const std::string &model = "");
    /// Ends the reservation of an answer that failed before it cost anything; tried again like
    /// settleAtLast().
    void release(const std::string &id);
    /// Settles what could not be settled before, and renews the leases of this instance's running
    /// answers. What fails is tried again by the next call.
    void renew();
    /// Settles the answers whose leases have expired, of one account when given. Returns their
    /// number.
    int expire(std::int64_t accountId = 0);
    /// Running answers of an account.
    int running(std::int64_t accountId);

private:
    struct Entry;
    std::optional<Entry> find(const std::string &id);
    /// Tokens that @p account may still reserve besides what is used and reserved by answers other
    /// than @p except; nothing without a cap.
    struct Room;
    Room room(std::int64_t accountId, const std::string &period, const std::string &except);
    /// Takes back that an expired answer was counted.
    void takeBack(const Entry &entry);
    /// Takes it back and lets it run with what it was counted for.
    void reopen(const std::string &id, Entry &entry);
    /// An ended answer that the store does not know of yet.
    struct Ended
    {
        std::string id;
        TokenCount tokens;
        int queries = 1;
        std::string model = {};
    };
    bool close(const Ended &ended, const char *state);
    bool end(const Ended &ended);
    bool endAtLast(const Ended &ended);
    void endLater(const Ended &ended);
    std::int64_t leaseEnd() const;

    Database &m_database;
    const Clock &m_clock;
    UsageLedger m_usage;
    std::string m_instance;
    int m_concurrent;
    std::mutex m_mutex;
    std::vector<Ended> m_unsettled;
};

} // namespace quellora::server
