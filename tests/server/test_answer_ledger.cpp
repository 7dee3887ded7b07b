#include "PostgresCluster.h"
#include "ServerKit.h"

#include "store/AnswerLedger.h"
#include "store/Housekeeping.h"

namespace quellora::server {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

/// Two instances on one store of the kind that the parameter names.
class AnswerLedgerTest : public testing::TestWithParam<const char *>
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    PasswordHasher hasher{weakCost()};
    Config config = configuration();
    std::unique_ptr<Database> firstDatabase = openDatabase(config);
    std::unique_ptr<Database> secondDatabase = openDatabase(config);
    Accounts accounts{*firstDatabase, hasher, clock};
    UsageLedger usage{*firstDatabase, clock};
    AnswerLedger first{*firstDatabase, clock, "first", 4};
    AnswerLedger second{*secondDatabase, clock, "second", 4};

    Config configuration() const
    {
        Config made = testConfig(directory);
        if (std::string(GetParam()) == "postgresql")
            made.postgres.url = PostgresCluster::shared().newDatabase();
        return made;
    }
    Account ann(std::int64_t cap) { return *accounts.createInvited("ann@x.org", "local", cap); }
    std::int64_t used(const Account &account) { return usage.current(account.id).total(); }
};

INSTANTIATE_TEST_SUITE_P(Stores, AnswerLedgerTest, testing::Values("sqlite", "postgresql"),
                         [](const auto &kind) { return std::string(kind.param); });

TEST_P(AnswerLedgerTest, AnswerIsCountedOnce)
{
    const Account account = ann(0);
    const auto answer = first.begin(account.id, "small", 10, 100);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->reserved, 100);
    EXPECT_EQ(second.running(account.id), 1);
    EXPECT_TRUE(first.settle(answer->id, {20, 30}));
    EXPECT_FALSE(first.settle(answer->id, {20, 30}));
    EXPECT_FALSE(second.settle(answer->id, {1, 1}));
    first.release(answer->id);
    EXPECT_EQ(usage.current(account.id), (TokenCount{20, 30}));
    EXPECT_EQ(usage.queries(account.id), 1);
    EXPECT_EQ(first.running(account.id), 0);
    const auto daily = usage.daily("2026-01-15", "2026-01-15");
    ASSERT_EQ(daily.size(), 1U);
    EXPECT_EQ(daily[0].model, "small");
    EXPECT_FALSE(first.settle("unknown", {1, 1}));
}

TEST_P(AnswerLedgerTest, AnswerIsCountedForTheModelThatGaveIt)
{
    const Account account = ann(0);
    const auto answer = first.begin(account.id, "asked", 10, 100);
    // Until then it counts for the model that was asked.
    clock.advance(AnswerLedger::lease);
    EXPECT_EQ(second.expire(), 1);
    EXPECT_TRUE(first.settleAtLast(answer->id, {20, 30}, "other"));
    EXPECT_EQ(usage.current(account.id), (TokenCount{20, 30}));
    EXPECT_EQ(usage.queries(account.id), 1);
    for (const DailyUsage &day : usage.daily("2026-01-15", "2026-01-15")) {
        EXPECT_EQ(day.queries, day.model == "other" ? 1 : 0) << day.model;
        EXPECT_EQ(day.tokens.total(), day.model == "other" ? 50 : 0) << day.model;
    }
}

TEST_P(AnswerLedgerTest, FailedAnswerCostsNothing)
{
    const Account account = ann(1000);
    const auto answer = first.begin(account.id, "small", 10, 1249);
    ASSERT_TRUE(answer);
    first.release(answer->id);
    EXPECT_FALSE(first.settle(answer->id, {1, 1}));
    EXPECT_EQ(used(account), 0);
    EXPECT_EQ(usage.queries(account.id), 0);
    EXPECT_TRUE(second.begin(account.id, "small", 10, 1249));
}

TEST_P(AnswerLedgerTest, RunningAnswersAreLimitedAcrossInstances)
{
    const Account account = ann(0);
    std::vector<AdmittedAnswer> running;
    running.reserve(4);
    for (int i = 0; i < 4; ++i)
        running.push_back(*(i % 2 == 0 ? first : second).begin(account.id, "m", 1, 1));
    EXPECT_EQ(first.begin(account.id, "m", 1, 1).error(), AnswerRefusal::Busy);
    EXPECT_EQ(second.begin(account.id, "m", 1, 1).error(), AnswerRefusal::Busy);
    const Account other = *accounts.createInvited("b@x.org", "local", 0);
    EXPECT_TRUE(first.begin(other.id, "m", 1, 1));
    first.settle(running[0].id, {1, 1});
    EXPECT_TRUE(second.begin(account.id, "m", 1, 1));
}

TEST_P(AnswerLedgerTest, ReservationsStayBelowTheTolerance)
{
    const Account account = ann(1000);
    const auto one = first.begin(account.id, "m", 100, 700);
    const auto two = second.begin(account.id, "m", 100, 900);
    ASSERT_TRUE(one && two);
    EXPECT_EQ(one->reserved, 700);
    // What is left of 1249.
    EXPECT_EQ(two->reserved, 549);
    EXPECT_EQ(first.begin(account.id, "m", 1, 1).error(), AnswerRefusal::Busy);
    EXPECT_FALSE(first.extend(one->id, 701, 800));
    EXPECT_EQ(first.extend(one->id, 700, 800), 700);
    second.settle(two->id, {100, 100});
    EXPECT_EQ(first.extend(one->id, 701, 5000), 1049);
    first.settle(one->id, {100, 949});
    EXPECT_EQ(used(account), 1249);
    EXPECT_EQ(first.begin(account.id, "m", 1, 1).error(), AnswerRefusal::Spent);
}

TEST_P(AnswerLedgerTest, QuestionBeyondTheToleranceIsRefusedBeforeItCosts)
{
    const Account account = ann(1000);
    EXPECT_EQ(first.begin(account.id, "m", 1249, 2000).error(), AnswerRefusal::Spent);
    const auto most = first.begin(account.id, "m", 1248, 2000);
    ASSERT_TRUE(most);
    EXPECT_EQ(most->reserved, 1249);
}

TEST_P(AnswerLedgerTest, SuspendedAndUnknownAccountsAreRefused)
{
    const Account account = ann(1000);
    const auto running = first.begin(account.id, "m", 1, 10);
    accounts.setSuspended(account.email, true);
    EXPECT_EQ(second.begin(account.id, "m", 1, 1).error(), AnswerRefusal::NoAccount);
    EXPECT_EQ(second.begin(999, "m", 1, 1).error(), AnswerRefusal::NoAccount);
    EXPECT_FALSE(first.extend(running->id, 11, 20));
    EXPECT_TRUE(first.settle(running->id, {1, 5}));
    accounts.setSuspended(account.email, false);
    const auto again = first.begin(account.id, "m", 1, 10);
    accounts.remove(account.email);
    EXPECT_FALSE(first.extend(again->id, 11, 20));
    EXPECT_FALSE(first.settle(again->id, {1, 5}));
}

TEST_P(AnswerLedgerTest, RaisedCapIsInForceAtOnce)
{
    const Account account = ann(100);
    const auto answer = first.begin(account.id, "m", 10, 1000);
    EXPECT_EQ(answer->reserved, 124);
    accounts.setTokenCap(account.email, 1000);
    EXPECT_EQ(first.extend(answer->id, 125, 500), 500);
    accounts.setTokenCap(account.email, 0);
    EXPECT_EQ(first.extend(answer->id, 5000, 6000), 6000);
}

TEST_P(AnswerLedgerTest, AnswersOfADeadInstanceExpireWithTheirReservation)
{
    const Account account = ann(10000);
    const auto dead = first.begin(account.id, "m", 100, 400);
    const auto living = second.begin(account.id, "m", 100, 400);
    clock.advance(AnswerLedger::lease - seconds(1));
    second.renew();
    clock.advance(seconds(1));
    EXPECT_EQ(second.running(account.id), 1);
    EXPECT_EQ(second.expire(), 1);
    EXPECT_EQ(second.expire(), 0);
    EXPECT_EQ(usage.current(account.id), (TokenCount{100, 300}));
    EXPECT_EQ(usage.queries(account.id), 1);
    // It was cut off only; the figures are put right, once.
    EXPECT_TRUE(first.settle(dead->id, {90, 10}));
    EXPECT_FALSE(first.settle(dead->id, {90, 10}));
    EXPECT_EQ(usage.current(account.id), (TokenCount{90, 10}));
    EXPECT_EQ(usage.queries(account.id), 1);
    EXPECT_TRUE(second.settle(living->id, {1, 1}));
    EXPECT_EQ(usage.queries(account.id), 2);
}

TEST_P(AnswerLedgerTest, ExpiredAnswerGoesOnWhenItsInstanceIsBack)
{
    const Account account = ann(1000);
    const auto answer = first.begin(account.id, "m", 100, 400);
    clock.advance(AnswerLedger::lease);
    EXPECT_EQ(second.expire(), 1);
    // What it had reserved stays reserved, also when there is no more for it.
    EXPECT_EQ(first.extend(answer->id, 1250, 1300), tl::make_unexpected(AnswerRefusal::Spent));
    EXPECT_EQ(used(account), 0);
    EXPECT_EQ(second.running(account.id), 1);
    EXPECT_EQ(second.begin(account.id, "m", 848, 2000)->reserved, 849);
    EXPECT_EQ(first.extend(answer->id, 300, 500), 400);
    EXPECT_TRUE(first.settle(answer->id, {100, 250}));
    EXPECT_EQ(used(account), 350);
    EXPECT_EQ(usage.queries(account.id), 1);
    EXPECT_EQ(first.extend(answer->id, 1, 1), tl::make_unexpected(AnswerRefusal::NoAccount));
}

TEST_P(AnswerLedgerTest, ExpiredAnswerThatFailedIsTakenBack)
{
    const Account account = ann(0);
    const auto answer = first.begin(account.id, "m", 100, 400);
    clock.advance(AnswerLedger::lease);
    EXPECT_EQ(second.expire(), 1);
    first.release(answer->id);
    EXPECT_EQ(used(account), 0);
    EXPECT_EQ(usage.queries(account.id), 0);
}

TEST_P(AnswerLedgerTest, BeginningFreesWhatADeadInstanceHeld)
{
    const Account account = ann(0);
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(first.begin(account.id, "m", 1, 1));
    clock.advance(AnswerLedger::lease);
    EXPECT_TRUE(second.begin(account.id, "m", 1, 1));
    EXPECT_EQ(usage.queries(account.id), 4);
}

TEST_P(AnswerLedgerTest, AnswerCountsForTheMonthInWhichItBegan)
{
    const Account account = ann(1000);
    const auto answer = first.begin(account.id, "m", 10, 1249);
    clock.advance(hours(24 * 20));
    // The next month is not reserved.
    EXPECT_TRUE(second.begin(account.id, "m", 10, 1249));
    first.settle(answer->id, {10, 500});
    EXPECT_EQ(used(account), 0);
    EXPECT_EQ(usage.daily("2026-01-15", "2026-01-15").at(0).tokens.output, 500);
}

TEST_P(AnswerLedgerTest, AnswerThatCannotBeCountedNowIsCountedLater)
{
    const Account account = ann(0);
    const auto answer = first.begin(account.id, "m", 10, 100);
    const auto failed = first.begin(account.id, "m", 10, 100);
    firstDatabase->execute("ALTER TABLE usage RENAME TO hidden");
    EXPECT_FALSE(first.settleAtLast(answer->id, {20, 30}));
    EXPECT_NO_THROW(first.release(failed->id));
    EXPECT_EQ(first.running(account.id), 2);
    firstDatabase->execute("ALTER TABLE hidden RENAME TO usage");
    first.renew();
    EXPECT_EQ(usage.current(account.id), (TokenCount{20, 30}));
    EXPECT_EQ(usage.queries(account.id), 1);
    EXPECT_EQ(first.running(account.id), 0);
    first.renew();
    EXPECT_EQ(usage.queries(account.id), 1);
}

TEST_P(AnswerLedgerTest, EndedAnswersAreForgottenAfterAWhile)
{
    const Account account = ann(0);
    const auto ended = first.begin(account.id, "m", 1, 1);
    const auto running = first.begin(account.id, "m", 1, 1);
    first.settle(ended->id, {1, 1});
    RetentionSettings retention;
    retention.answerDays = 2;
    const auto kept = [&] {
        std::int64_t count = 0;
        EXPECT_TRUE(deleteOutdated(*firstDatabase, clock, retention));
        firstDatabase->query("SELECT count(*) FROM answers", {},
                             [&](const Database::Row &row) { count = row.integer(0); });
        return count;
    };
    clock.advance(hours(24));
    first.renew();
    EXPECT_EQ(kept(), 2);
    clock.advance(hours(25));
    first.renew();
    EXPECT_EQ(kept(), 1);
    EXPECT_TRUE(first.settle(running->id, {1, 1}));
}

TEST_P(AnswerLedgerTest, ParallelAnswersNeverPassTheTolerance)
{
    constexpr std::int64_t cap = 2000;
    const Account account = ann(cap);
    constexpr int clients = 12;
    std::vector<std::unique_ptr<Database>> databases;
    databases.reserve(3);
    for (int i = 0; i < 3; ++i)
        databases.push_back(openDatabase(config));
    std::atomic<std::int64_t> spent{0};
    std::atomic<int> most{0};
    std::vector<std::future<void>> work;
    work.reserve(clients);
    for (int client = 0; client < clients; ++client)
        work.push_back(std::async(std::launch::async, [&, client] {
            const std::string name = "instance" + std::to_string(client % 3);
            AnswerLedger ledger(*databases[static_cast<std::size_t>(client % 3)], clock, name, 4);
            for (int round = 0; round < 12; ++round) {
                const auto answer = ledger.begin(account.id, "m", 20, 40);
                if (!answer)
                    continue;
                const int now = ledger.running(account.id);
                int seen = most;
                while (now > seen && !most.compare_exchange_weak(seen, now)) {
                }
                std::int64_t tokens = answer->reserved;
                for (int step = 0; step < 5; ++step) {
                    const auto more = ledger.extend(answer->id, tokens + 1, tokens + 40);
                    if (!more)
                        break;
                    tokens = *more;
                }
                if (ledger.settle(answer->id, {20, tokens - 20}))
                    spent += tokens;
            }
        }));
    for (auto &client : work)
        client.get();
    EXPECT_EQ(used(account), spent);
    EXPECT_GE(used(account), cap);
    EXPECT_LT(used(account), cap + cap / 4);
    EXPECT_LE(most, 4);
}

} // namespace
} // namespace quellora::server
