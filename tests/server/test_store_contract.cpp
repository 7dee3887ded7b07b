#include "PostgresCluster.h"
#include "ServerKit.h"

#include "store/AnswerLedger.h"
#include "store/AuditTrail.h"
#include "store/Changes.h"
#include "store/FormNonces.h"
#include "store/Messages.h"
#include "store/Migrations.h"
#include "store/RateLimiter.h"
#include "store/StoredSettings.h"

#include <fstream>
#include <set>

namespace quellora::server {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

/// A store of the kind that the parameter names, opened anew as often as a test likes.
class StoreContract : public testing::TestWithParam<const char *>
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    PasswordHasher hasher{weakCost()};
    Config config = configuration();
    std::unique_ptr<Database> opened = openDatabase(config);
    Database &database = *opened;
    Accounts accounts{database, hasher, clock};
    Sessions sessions{database, clock, hours(24), seconds(120)};
    UsageLedger usage{database, clock};

    Config configuration() const
    {
        Config made = testConfig(directory);
        if (std::string(GetParam()) == "postgresql")
            made.postgres.url = PostgresCluster::shared().newDatabase();
        return made;
    }

    Account ann(std::int64_t cap = 0) { return *accounts.create("ann@x.org", "pw", "local", cap); }

    std::int64_t rowsOf(const std::string &table)
    {
        std::int64_t count = 0;
        database.query("SELECT count(*) FROM " + table, {},
                       [&](const Database::Row &row) { count = row.integer(0); });
        return count;
    }
};

INSTANTIATE_TEST_SUITE_P(Stores, StoreContract, testing::Values("sqlite", "postgresql"),
                         [](const auto &kind) { return std::string(kind.param); });

TEST_P(StoreContract, FailedTransactionIsRolledBack)
{
    EXPECT_THROW(database.transaction([&] {
        ann();
        throw std::runtime_error("no");
    }),
                 std::runtime_error);
    EXPECT_TRUE(accounts.all().empty());
    EXPECT_TRUE(accounts.create("b@x.org", "pw", "local", 0));
}

TEST_P(StoreContract, AccountsAreUniqueAndCheckPasswords)
{
    ann();
    EXPECT_FALSE(accounts.create("ann@x.org", "other", "local", 0));
    EXPECT_TRUE(accounts.authenticate("ann@x.org", "pw"));
    EXPECT_FALSE(accounts.authenticate("ann@x.org", "other"));
    EXPECT_FALSE(accounts.authenticate("bob@x.org", "pw"));
}

TEST_P(StoreContract, SettersReportMissingAccounts)
{
    EXPECT_FALSE(accounts.setPassword("no@x.org", "p"));
    EXPECT_FALSE(accounts.setTokenCap("no@x.org", 1));
    EXPECT_FALSE(accounts.setPlan("no@x.org", "p"));
    EXPECT_FALSE(accounts.setSuspended("no@x.org", true));
    EXPECT_FALSE(accounts.remove("no@x.org"));
    ann();
    EXPECT_TRUE(accounts.setTokenCap("ann@x.org", 5));
    EXPECT_TRUE(accounts.setPlan("ann@x.org", "team"));
    EXPECT_TRUE(accounts.setSuspended("ann@x.org", true));
    const Account account = *accounts.findByEmail("ann@x.org");
    EXPECT_EQ(account.tokenCap, 5);
    EXPECT_EQ(account.plan, "team");
    EXPECT_TRUE(account.suspended);
}

TEST_P(StoreContract, SessionsExpire)
{
    const IssuedSession session = sessions.issue(ann().id);
    clock.advance(hours(24) - seconds(1));
    EXPECT_TRUE(sessions.find(session.token));
    EXPECT_EQ(sessions.find(session.token)->id, session.id);
    clock.advance(seconds(1));
    EXPECT_FALSE(sessions.find(session.token));
}

TEST_P(StoreContract, ExpiredSessionsAreDeleted)
{
    const std::int64_t id = ann().id;
    sessions.issue(id);
    clock.advance(hours(25));
    sessions.issue(id);
    EXPECT_EQ(rowsOf("sessions"), 1);
}

TEST_P(StoreContract, HandoverTokenCanBeRedeemedOnce)
{
    const Account account = ann();
    const IssuedSession handover = sessions.issueHandover(account.id);
    EXPECT_FALSE(sessions.find(handover.token));
    EXPECT_EQ(sessions.redeem(handover.token), account.id);
    EXPECT_FALSE(sessions.redeem(handover.token));
    const IssuedSession late = sessions.issueHandover(account.id);
    clock.advance(seconds(120));
    EXPECT_FALSE(sessions.redeem(late.token));
    EXPECT_FALSE(sessions.redeem(sessions.issue(account.id).token));
}

TEST_P(StoreContract, NewPasswordEndsTheSessionsOfItsAccountOnly)
{
    const IssuedSession mine = sessions.issue(ann().id);
    const IssuedSession other = sessions.issue(accounts.create("bob@x.org", "pw", "local", 0)->id);
    EXPECT_TRUE(accounts.setPassword("ann@x.org", "new"));
    EXPECT_FALSE(sessions.find(mine.token));
    EXPECT_TRUE(sessions.find(other.token));
    EXPECT_TRUE(accounts.authenticate("ann@x.org", "new"));
}

TEST_P(StoreContract, DeletingAnAccountDeletesItsData)
{
    const Account account = ann();
    const IssuedSession session = sessions.issue(account.id);
    addUsage(usage, clock, account.id, {1, 2});
    Telemetry telemetry(database, clock);
    telemetry.add(account.id, "{}");
    EXPECT_TRUE(accounts.remove("ann@x.org"));
    EXPECT_FALSE(sessions.find(session.token));
    EXPECT_EQ(rowsOf("telemetry"), 0);
    EXPECT_EQ(usage.current(account.id).total(), 0);
    // An answer may end after its account was deleted.
    EXPECT_NO_THROW(addUsage(usage, clock, account.id, {1, 2}));
}

TEST_P(StoreContract, UsageIsCountedPerMonth)
{
    const Account account = ann();
    addUsage(usage, clock, account.id, {10, 5});
    addUsage(usage, clock, account.id, {1, 1});
    EXPECT_EQ(usage.current(account.id).input, 11);
    EXPECT_EQ(usage.current(account.id).total(), 17);
    EXPECT_EQ(usage.queries(account.id), 2);
    clock.advance(hours(24 * 31));
    EXPECT_EQ(usage.current(account.id).total(), 0);
}

TEST_P(StoreContract, FiguresDependOnTheCap)
{
    const Account account = ann(1000);
    const auto after = [&](std::int64_t more) {
        addUsage(usage, clock, account.id, {more, 0});
        return usage.figures(account);
    };
    UsageFigures figures = after(749);
    EXPECT_EQ(figures.remaining, 251);
    EXPECT_FALSE(figures.warning75);
    figures = after(1);
    EXPECT_TRUE(figures.warning75);
    EXPECT_FALSE(figures.warning90);
    figures = after(150);
    EXPECT_TRUE(figures.warning90);
    EXPECT_FALSE(UsageLedger::spent(account, figures.used));
    figures = after(200);
    EXPECT_EQ(figures.used, 1100);
    EXPECT_EQ(figures.remaining, 0);
    EXPECT_EQ(figures.cap, 1000);
    EXPECT_TRUE(UsageLedger::spent(account, 1000));
    EXPECT_FALSE(UsageLedger::overdrawn(account, 1249));
    EXPECT_TRUE(UsageLedger::overdrawn(account, 1250));
}

TEST_P(StoreContract, AccountWithoutCapIsNeverSpent)
{
    const Account account = ann(0);
    addUsage(usage, clock, account.id, {UsageLedger::unlimitedAllowance * 2, 0});
    const UsageFigures figures = usage.figures(account);
    EXPECT_GT(figures.cap, 0);
    EXPECT_GT(figures.remaining, 0);
    EXPECT_FALSE(figures.warning90);
    EXPECT_FALSE(UsageLedger::spent(account, figures.used));
    EXPECT_FALSE(UsageLedger::overdrawn(account, figures.used));
}

TEST_P(StoreContract, TelemetryKeepsTheLatestRecords)
{
    const Account account = ann();
    Telemetry telemetry(database, clock);
    for (int i = 0; i < 3; ++i) {
        telemetry.add(account.id, "{}");
        clock.advance(hours(24));
    }
    telemetry.trim(clock.now() - hours(48));
    EXPECT_EQ(rowsOf("telemetry"), 2);
    database.transaction([&] {
        for (std::int64_t i = 0; i < Telemetry::keptRecords; ++i)
            telemetry.add(account.id, "{}");
    });
    telemetry.trim(clock.now() - hours(48));
    EXPECT_EQ(rowsOf("telemetry"), Telemetry::keptRecords);
}

TEST_P(StoreContract, ReopeningKeepsTheDataAndTheSchema)
{
    ann();
    EXPECT_EQ(database.schemaVersion(), newestSchema());
    const auto again = openDatabase(config);
    EXPECT_TRUE(Accounts(*again, hasher, clock).findByEmail("ann@x.org"));
    EXPECT_EQ(again->schemaVersion(), newestSchema());
}

TEST_P(StoreContract, NewerSchemaIsRefused)
{
    database.setSchemaVersion(newestSchema() + 1);
    try {
        openDatabase(config);
        FAIL();
    } catch (const DatabaseError &problem) {
        EXPECT_NE(std::string(problem.what()).find("newer version"), std::string::npos);
    }
}

TEST_P(StoreContract, ParallelMigrationsApplyOnce)
{
    if (std::string(GetParam()) == "postgresql")
        config.postgres.url = PostgresCluster::shared().newDatabase();
    else
        config.dataFile = directory.path() / "parallel.sqlite";
    std::vector<std::future<std::int64_t>> starts;
    starts.reserve(6);
    for (int i = 0; i < 6; ++i)
        starts.push_back(std::async(std::launch::async,
                                    [this] { return openDatabase(config)->schemaVersion(); }));
    for (auto &start : starts)
        EXPECT_EQ(start.get(), newestSchema());
}

TEST_P(StoreContract, ValuesComeBackAsTheyWere)
{
    database.execute("CREATE TABLE kept(n BIGINT, t TEXT, b " +
                     std::string(database.dialect().bytes) + ")");
    const std::string text = "'?' \"q\" \\ \xE2\x9C\x93";
    const std::string bytes("\0\xFF' ?\\", 6);
    const auto least = std::numeric_limits<std::int64_t>::min();
    database.execute("INSERT INTO kept(n, t, b) VALUES(?, ?, ?)",
                     {least, text, Database::Bytes{bytes}});
    database.execute("INSERT INTO kept(n, t, b) VALUES(?, ?, ?)",
                     {Database::Null(), Database::Null(), Database::Null()});
    int rows = 0;
    database.query("SELECT n, t, b, '?' FROM kept WHERE n = ? OR n IS NULL ORDER BY n IS NULL",
                   {least}, [&](const Database::Row &row) {
                       EXPECT_EQ(row.isNull(0), rows == 1);
                       EXPECT_EQ(row.integer(0), rows == 0 ? least : 0);
                       EXPECT_EQ(row.text(1), rows == 0 ? text : "");
                       EXPECT_EQ(row.bytes(2), rows == 0 ? bytes : "");
                       EXPECT_EQ(row.text(3), "?");
                       ++rows;
                   });
    EXPECT_EQ(rows, 2);
}

TEST_P(StoreContract, TextThatIsNoTextIsRefused)
{
    for (const std::string &text :
         {std::string("a\0b", 3), std::string("\xC3"), std::string("\xC0\x80"),
          std::string("\xED\xA0\x80"), std::string("\xF5\x80\x80\x80"), std::string("\x80")})
        EXPECT_THROW(accounts.createInvited(text, "local", 0), DatabaseError);
    EXPECT_TRUE(accounts.createInvited("\xF0\x9F\x98\x80@x.org", "local", 0));
    EXPECT_FALSE(accounts.authenticate("\xC3@x.org", "pw"));
}

TEST_P(StoreContract, ErrorsDoNotRepeatStoredValues)
{
    ann();
    try {
        database.execute("INSERT INTO accounts(email, password_hash, plan, token_cap, created_at,"
                         " person) VALUES('ann@x.org', 'h', 'p', 0, 0, 'x')");
        FAIL();
    } catch (const DatabaseError &problem) {
        EXPECT_EQ(problem.kind(), DatabaseError::Kind::Failed);
        EXPECT_EQ(std::string(problem.what()).find("ann@x.org"), std::string::npos);
    }
}

TEST_P(StoreContract, InnerTransactionBelongsToTheOuterOne)
{
    EXPECT_THROW(database.transaction([&] {
        database.transaction([&] { ann(); });
        EXPECT_TRUE(accounts.findByEmail("ann@x.org"));
        throw std::runtime_error("no");
    }),
                 std::runtime_error);
    EXPECT_FALSE(accounts.findByEmail("ann@x.org"));
}

TEST_P(StoreContract, SnapshotSeesOneState)
{
    const auto other = openDatabase(config);
    Accounts others(*other, hasher, clock);
    database.snapshot([&] {
        EXPECT_EQ(accounts.all().size(), 0U);
        others.createInvited("b@x.org", "local", 0);
        EXPECT_EQ(accounts.all().size(), 0U);
    });
    EXPECT_EQ(accounts.all().size(), 1U);
}

TEST_P(StoreContract, KeysExcludeOthersUntilTheEndOfTheTransaction)
{
    const auto other = openDatabase(config);
    database.transaction([&] {
        database.lockKey("k");
        if (other->isShared())
            other->transaction([&] {
                EXPECT_FALSE(other->tryLockKey("k"));
                EXPECT_TRUE(other->tryLockKey("another"));
            });
    });
    other->transaction([&] { EXPECT_TRUE(other->tryLockKey("k")); });
}

TEST_P(StoreContract, InvitedAccountHasNoPassword)
{
    const auto account = accounts.createInvited("inv@x.org", "local", 0);
    ASSERT_TRUE(account);
    EXPECT_TRUE(account->isInvited);
    EXPECT_FALSE(accounts.authenticate("inv@x.org", ""));
    EXPECT_TRUE(accounts.setPassword("inv@x.org", "secret"));
    EXPECT_FALSE(accounts.findByEmail("inv@x.org")->isInvited);
    EXPECT_TRUE(accounts.authenticate("inv@x.org", "secret"));
}

TEST_P(StoreContract, EveryAccountIsAPersonOfItsOwn)
{
    const Account first = ann();
    const Account second = *accounts.createInvited("b@x.org", "local", 0);
    EXPECT_EQ(first.person.rfind("person-", 0), 0U);
    EXPECT_EQ(first.person.size(), 39U);
    EXPECT_NE(first.person, second.person);
}

TEST_P(StoreContract, SingleSignOnNamesAreUnique)
{
    ann();
    accounts.createInvited("b@x.org", "local", 0);
    EXPECT_TRUE(accounts.setOidc("ann@x.org", "https://id.example", "7"));
    EXPECT_FALSE(accounts.setOidc("b@x.org", "https://id.example", "7"));
    EXPECT_TRUE(accounts.setOidc("b@x.org", "https://other.example", "7"));
    EXPECT_FALSE(accounts.setOidc("no@x.org", "https://id.example", "8"));
    EXPECT_EQ(accounts.findByOidc("https://id.example", "7")->email, "ann@x.org");
    EXPECT_FALSE(accounts.findByOidc("https://id.example", "8"));
}

TEST_P(StoreContract, LastUseIsExactToFiveMinutes)
{
    const Account account = ann();
    EXPECT_EQ(account.lastSeenAt, 0);
    accounts.touch(account);
    const std::int64_t first = toSeconds(clock.now());
    clock.advance(minutes(4));
    accounts.touch(*accounts.find(account.id));
    EXPECT_EQ(accounts.find(account.id)->lastSeenAt, first);
    clock.advance(minutes(1));
    accounts.touch(*accounts.find(account.id));
    EXPECT_EQ(accounts.find(account.id)->lastSeenAt, first + 300);
}

TEST_P(StoreContract, UsageIsCountedPerModelAndDay)
{
    const Account account = ann();
    const Account other = *accounts.createInvited("b@x.org", "local", 0);
    addUsage(usage, clock, account.id, {1, 2}, "small");
    addUsage(usage, clock, account.id, {3, 4}, "small");
    addUsage(usage, clock, account.id, {5, 6}, "large");
    clock.advance(hours(24));
    addUsage(usage, clock, other.id, {7, 8}, "small");
    const std::vector<DailyUsage> all = {{account.id, "2026-01-15", "large", {5, 6}, 1},
                                         {account.id, "2026-01-15", "small", {4, 6}, 2},
                                         {other.id, "2026-01-16", "small", {7, 8}, 1}};
    EXPECT_EQ(usage.daily("2026-01-01", "2026-01-31"), all);
    EXPECT_EQ(usage.daily("2026-01-16", "2026-01-16"), std::vector<DailyUsage>{all[2]});
    EXPECT_EQ(usage.daily("2026-01-01", "2026-01-31", other.id), std::vector<DailyUsage>{all[2]});
}

TEST_P(StoreContract, FormNoncesServeOnceInTheirScopeOnAnyInstance)
{
    const auto other = openDatabase(config);
    FormNonces here(database, clock, "sign-in");
    FormNonces there(*other, clock, "sign-in");
    FormNonces elsewhere(*other, clock, "account");
    const std::string nonce = here.issue();
    EXPECT_FALSE(elsewhere.consume(nonce));
    EXPECT_TRUE(there.consume(nonce));
    EXPECT_FALSE(here.consume(nonce));
    const std::string old = here.issue();
    clock.advance(minutes(10));
    EXPECT_FALSE(here.consume(old));
    EXPECT_FALSE(here.consume(""));
    EXPECT_FALSE(here.consume("\xFF"));
}

TEST_P(StoreContract, FormNoncesOfOthersInvalidateNobodys)
{
    FormNonces nonces(database, clock, "admin-sign-in");
    const std::string first = nonces.issue();
    for (int i = 0; i < 10000; ++i)
        nonces.issue();
    EXPECT_EQ(rowsOf("form_nonces"), 0);
    EXPECT_TRUE(nonces.consume(first));
    EXPECT_EQ(rowsOf("form_nonces"), 1);
}

TEST_P(StoreContract, FormNoncesCannotBeMade)
{
    FormNonces nonces(database, clock, "sign-in");
    const std::string nonce = nonces.issue();
    for (std::size_t i = 0; i < nonce.size(); ++i) {
        std::string forged = nonce;
        forged[i] = forged[i] == '7' ? '8' : '7';
        EXPECT_FALSE(nonces.consume(forged)) << i;
        EXPECT_FALSE(nonces.consume(nonce.substr(0, i))) << i;
    }
    EXPECT_FALSE(nonces.consume(nonce + "0"));
    EXPECT_FALSE(nonces.consume(".."));
    EXPECT_FALSE(nonces.consume("9" + nonce));
    EXPECT_TRUE(nonces.consume(nonce));
}

TEST_P(StoreContract, OnlySoManyUsedFormNoncesAreKept)
{
    FormNonces nonces(database, clock, "sign-in");
    FormNonces elsewhere(database, clock, "admin-sign-in");
    const std::string kept = elsewhere.issue();
    EXPECT_TRUE(elsewhere.consume(kept));
    database.transaction([&] {
        for (int i = 0; i < 4100; ++i)
            database.execute(
                "INSERT INTO form_nonces(fingerprint, scope, expires_at) VALUES(?, ?, ?)",
                {std::to_string(i), "sign-in", toMilliseconds(clock.now() + minutes(5))});
    });
    const std::string newest = nonces.issue();
    EXPECT_TRUE(nonces.consume(newest));
    EXPECT_FALSE(nonces.consume(newest));
    EXPECT_EQ(rowsOf("form_nonces"), 4097);
    EXPECT_FALSE(elsewhere.consume(kept));
    clock.advance(minutes(10));
    EXPECT_TRUE(nonces.consume(nonces.issue()));
    EXPECT_EQ(rowsOf("form_nonces"), 1);
}

TEST_P(StoreContract, RatesAreCountedForAllInstancesTogether)
{
    const auto other = openDatabase(config);
    StoredRateLimiter here(database, clock, "query", 2, seconds(60));
    StoredRateLimiter there(*other, clock, "query", 2, seconds(60));
    StoredRateLimiter uploads(*other, clock, "upload", 1, seconds(60));
    EXPECT_FALSE(here.acquire("a"));
    clock.advance(seconds(10));
    EXPECT_FALSE(there.acquire("a"));
    EXPECT_EQ(here.acquire("a"), seconds(50));
    EXPECT_EQ(there.acquire("a"), seconds(50));
    EXPECT_FALSE(here.acquire("b\xFF"));
    EXPECT_FALSE(uploads.acquire("a"));
    clock.advance(seconds(50));
    EXPECT_FALSE(there.acquire("a"));
    EXPECT_EQ(here.acquire("a"), seconds(10));
    there.reset("a");
    EXPECT_FALSE(here.acquire("a"));
}

TEST_P(StoreContract, ParallelRequestsDoNotExceedARate)
{
    constexpr int limit = 20;
    std::vector<std::unique_ptr<Database>> instances;
    instances.reserve(4);
    for (int i = 0; i < 4; ++i)
        instances.push_back(openDatabase(config));
    std::atomic<int> admitted{0};
    std::vector<std::future<void>> clients;
    clients.reserve(16);
    for (int client = 0; client < 16; ++client)
        clients.push_back(std::async(std::launch::async, [&, client] {
            StoredRateLimiter limiter(*instances[static_cast<std::size_t>(client % 4)], clock,
                                      "query", limit, seconds(60));
            for (int i = 0; i < 5; ++i)
                admitted += limiter.acquire("ann") ? 0 : 1;
        }));
    for (auto &client : clients)
        client.get();
    EXPECT_EQ(admitted, limit);
}

TEST_P(StoreContract, MessagesAreForAllOrOne)
{
    Messages messages(database, clock);
    const Account one = ann();
    const Account other = *accounts.createInvited("b@x.org", "local", 0);
    EXPECT_FALSE(messages.forAccount(one.id));
    AdminMessage message{"", "INFORMATIONAL", "Hello", "**all**", {}, {}, {}};
    const std::string forAll = messages.add(message);
    clock.advance(seconds(1));
    const AdminMessage own{"m-2", "INFORMATIONAL", "Hi", "you", "Open", "https://x.example", 60};
    EXPECT_EQ(messages.add(own, one.id), "m-2");
    EXPECT_EQ(messages.forAccount(one.id)->id, "m-2");
    EXPECT_EQ(messages.forAccount(one.id)->actionUrl, "https://x.example");
    EXPECT_EQ(messages.forAccount(one.id)->forceUpdateInMinutes, 60);
    EXPECT_EQ(messages.forAccount(other.id)->id, forAll);
    EXPECT_FALSE(messages.forAccount(other.id)->actionLabel);
    // A blocking message comes first, whomever it is for.
    message.type = "BLOCKING";
    const std::string blocking = messages.add(message);
    EXPECT_EQ(messages.forAccount(one.id)->id, blocking);
    EXPECT_TRUE(messages.withdraw(blocking));
    EXPECT_FALSE(messages.withdraw(blocking));
    EXPECT_FALSE(messages.withdraw("unknown"));
    EXPECT_EQ(messages.forAccount(one.id)->id, "m-2");
    ASSERT_EQ(messages.all().size(), 3U);
    accounts.remove("ann@x.org");
    EXPECT_EQ(messages.all().size(), 2U);
}

TEST_P(StoreContract, SettingsAreReplacedAndRemoved)
{
    StoredSettings settings(database, clock);
    EXPECT_FALSE(settings.get("default_prompt"));
    settings.set("default_prompt", "one");
    settings.set("default_prompt", "");
    EXPECT_EQ(settings.get("default_prompt"), "");
    settings.set("default_model", "m");
    EXPECT_EQ(settings.all().size(), 2U);
    settings.set("default_prompt", std::nullopt);
    EXPECT_FALSE(settings.get("default_prompt"));
}

TEST_P(StoreContract, AuditTrailOnlyGrowsAndOutlivesPeople)
{
    AuditTrail trail(database, clock);
    const Account account = ann();
    trail.add("command line", "create", account.person);
    trail.add("admin-1", "suspend", account.person, "reason");
    trail.add("admin-1", "setting", "default_prompt");
    EXPECT_THROW(database.execute("UPDATE audit SET actor = 'nobody'"), DatabaseError);
    EXPECT_THROW(database.execute("DELETE FROM audit"), DatabaseError);
    accounts.remove("ann@x.org");
    const auto about = trail.list(10, {account.person, "", 0});
    ASSERT_EQ(about.size(), 2U);
    EXPECT_EQ(about[0].action, "suspend");
    EXPECT_EQ(about[0].detail, "reason");
    const auto latest = trail.list(1);
    ASSERT_EQ(latest.size(), 1U);
    EXPECT_EQ(latest[0].subject, "default_prompt");
    EXPECT_EQ(trail.list(10, {"", "", latest[0].id}).size(), 2U);
    EXPECT_EQ(trail.list(10, {"", "suspend", 0}), std::vector<AuditEntry>{about[0]});
    EXPECT_TRUE(trail.list(10, {"admin-1", "create", 0}).empty());
    EXPECT_EQ(trail.actions(), (std::vector<std::string>{"create", "setting", "suspend"}));
}

TEST_P(StoreContract, UploadedLogsAreUnchangedAndTheOldestAreDeleted)
{
    UploadedLogs logs(database, clock, 2);
    const Account one = ann();
    const Account other = *accounts.createInvited("b@x.org", "local", 0);
    const std::string large = std::string(2500000, 'x') + std::string("\0\xFF\n", 3);
    for (const auto &[account, text] : std::vector<std::pair<std::int64_t, std::string>>{
             {one.id, "one"}, {other.id, "other"}, {one.id, large}, {one.id, "three"}}) {
        EXPECT_TRUE(logs.store(account, text));
        clock.advance(seconds(1));
    }
    const auto mine = logs.list(one.id);
    ASSERT_EQ(mine.size(), 2U);
    EXPECT_EQ(logs.list().size(), 3U);
    EXPECT_EQ(mine[1].bytes, static_cast<std::int64_t>(large.size()));
    std::string read;
    logs.read(mine[1].id, [&](std::string_view piece) {
        read += piece;
        return true;
    });
    EXPECT_EQ(read, large);
    EXPECT_EQ(logs.find(mine[0].id)->accountId, one.id);
    EXPECT_FALSE(logs.find(0));
    accounts.remove("ann@x.org");
    EXPECT_EQ(logs.list().size(), 1U);
    EXPECT_FALSE(logs.store(999, "nobody's"));
    EXPECT_EQ(rowsOf("uploaded_log_parts"), 1);
}

TEST_P(StoreContract, LogFilesOfOlderVersionsMoveIntoTheStore)
{
    const auto folder = directory.path() / "app-logs";
    std::filesystem::create_directories(folder);
    const Account account = ann();
    const std::string name = "account-" + std::to_string(account.id) + "-2026-01-0";
    std::ofstream(folder / (name + "1.log")) << "first";
    std::ofstream(folder / (name + "2.log")) << "second";
    std::ofstream(folder / "account-99-2026-01-01.log") << "of a deleted account";
    std::ofstream(folder / "else.txt") << "not ours";
    UploadedLogs logs(database, clock, 5);
    logs.adopt(folder);
    logs.adopt(folder);
    EXPECT_EQ(logs.list(account.id).size(), 2U);
    EXPECT_EQ(logs.list().size(), 2U);
    EXPECT_TRUE(std::filesystem::exists(folder / "else.txt"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
}

} // namespace
} // namespace quellora::server
