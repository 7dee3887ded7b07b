#include "ServerKit.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <fstream>
#include <set>
#include <sstream>

namespace quellora::server {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

class Store : public testing::Test
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    PasswordHasher hasher{weakCost()};
    std::filesystem::path file = directory.path() / "deep" / "backend.sqlite";
    Database database{file};
    Accounts accounts{database, hasher, clock};
    Sessions sessions{database, clock, hours(24), seconds(120)};
    UsageLedger usage{database, clock};

    Account ann(std::int64_t cap = 0) { return *accounts.create("ann@x.org", "pw", "local", cap); }

    std::int64_t rowsOf(const std::string &table)
    {
        std::int64_t count = 0;
        database.query("SELECT count(*) FROM " + table, {},
                       [&](const Database::Row &row) { count = row.integer(0); });
        return count;
    }

    std::string fileBytes() const
    {
        std::ifstream input(file, std::ios::binary);
        std::ostringstream bytes;
        bytes << input.rdbuf();
        return bytes.str();
    }
};

mode_t modeOf(const std::filesystem::path &path)
{
    struct stat info = {};
    ::stat(path.c_str(), &info);
    return info.st_mode & 0777U;
}

TEST_F(Store, FileAndDirectoryAreAccessibleToTheOwnerOnly)
{
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_EQ(modeOf(file.parent_path()), 0700U);
}

TEST_F(Store, PermissionsOfAnExistingFileAreRestricted)
{
    const auto other = directory.path() / "wide.sqlite";
    std::ofstream(other) << "";
    ::chmod(other.c_str(), 0666);
    const Database opened(other);
    EXPECT_EQ(modeOf(other), 0600U);
}

TEST_F(Store, InvalidAndNewerFilesAreRejected)
{
    const auto garbage = directory.path() / "garbage.sqlite";
    std::ofstream(garbage) << std::string(4096, 'x');
    EXPECT_THROW(Database{garbage}, DatabaseError);
    {
        Database newer(directory.path() / "newer.sqlite");
        newer.execute("PRAGMA user_version = 99");
    }
    EXPECT_THROW(Database{directory.path() / "newer.sqlite"}, DatabaseError);
    EXPECT_THROW(Database{"/proc/nowhere/backend.sqlite"}, DatabaseError);
    EXPECT_THROW(Database{std::filesystem::path()}, DatabaseError);
}

TEST_F(Store, DataSurvivesReopening)
{
    ann();
    Database again(file);
    EXPECT_TRUE(Accounts(again, hasher, clock).findByEmail("ann@x.org"));
}

TEST_F(Store, FailedTransactionIsRolledBack)
{
    EXPECT_THROW(database.transaction([&] {
        ann();
        throw std::runtime_error("no");
    }),
                 std::runtime_error);
    EXPECT_TRUE(accounts.all().empty());
    EXPECT_TRUE(accounts.create("b@x.org", "pw", "local", 0));
}

TEST_F(Store, AccountsAreUniqueAndCheckPasswords)
{
    ann();
    EXPECT_FALSE(accounts.create("ann@x.org", "other", "local", 0));
    EXPECT_TRUE(accounts.authenticate("ann@x.org", "pw"));
    EXPECT_FALSE(accounts.authenticate("ann@x.org", "other"));
    EXPECT_FALSE(accounts.authenticate("bob@x.org", "pw"));
}

TEST_F(Store, SettersReportMissingAccounts)
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

TEST_F(Store, FileContainsNoSecrets)
{
    const Account account = *accounts.create("ann@x.org", "open sesame", "local", 0);
    const IssuedSession session = sessions.issue(account.id);
    const std::string bytes = fileBytes();
    EXPECT_NE(bytes.find("ann@x.org"), std::string::npos);
    EXPECT_EQ(bytes.find("open sesame"), std::string::npos);
    EXPECT_EQ(bytes.find(session.token), std::string::npos);
}

TEST_F(Store, SessionsExpire)
{
    const IssuedSession session = sessions.issue(ann().id);
    clock.advance(hours(24) - seconds(1));
    EXPECT_TRUE(sessions.find(session.token));
    EXPECT_EQ(sessions.find(session.token)->id, session.id);
    clock.advance(seconds(1));
    EXPECT_FALSE(sessions.find(session.token));
}

TEST_F(Store, ExpiredSessionsAreDeleted)
{
    const std::int64_t id = ann().id;
    sessions.issue(id);
    clock.advance(hours(25));
    sessions.issue(id);
    EXPECT_EQ(rowsOf("sessions"), 1);
}

TEST_F(Store, HandoverTokenCanBeRedeemedOnce)
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

TEST_F(Store, NewPasswordEndsTheSessionsOfItsAccountOnly)
{
    const IssuedSession mine = sessions.issue(ann().id);
    const IssuedSession other = sessions.issue(accounts.create("bob@x.org", "pw", "local", 0)->id);
    EXPECT_TRUE(accounts.setPassword("ann@x.org", "new"));
    EXPECT_FALSE(sessions.find(mine.token));
    EXPECT_TRUE(sessions.find(other.token));
    EXPECT_TRUE(accounts.authenticate("ann@x.org", "new"));
}

TEST_F(Store, DeletingAnAccountDeletesItsData)
{
    const Account account = ann();
    const IssuedSession session = sessions.issue(account.id);
    usage.add(account.id, {1, 2});
    Telemetry telemetry(database, clock);
    telemetry.add(account.id, "{}");
    EXPECT_TRUE(accounts.remove("ann@x.org"));
    EXPECT_FALSE(sessions.find(session.token));
    EXPECT_EQ(rowsOf("telemetry"), 0);
    EXPECT_EQ(usage.current(account.id).total(), 0);
    // An answer may end after its account was deleted.
    EXPECT_NO_THROW(usage.add(account.id, {1, 2}));
}

TEST_F(Store, UsageIsCountedPerMonth)
{
    const Account account = ann();
    usage.add(account.id, {10, 5});
    usage.add(account.id, {1, 1});
    EXPECT_EQ(usage.current(account.id).input, 11);
    EXPECT_EQ(usage.current(account.id).total(), 17);
    EXPECT_EQ(usage.queries(account.id), 2);
    clock.advance(hours(24 * 31));
    EXPECT_EQ(usage.current(account.id).total(), 0);
}

TEST_F(Store, FiguresDependOnTheCap)
{
    const Account account = ann(1000);
    const auto after = [&](std::int64_t more) {
        usage.add(account.id, {more, 0});
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

TEST_F(Store, AccountWithoutCapIsNeverSpent)
{
    const Account account = ann(0);
    usage.add(account.id, {UsageLedger::unlimitedAllowance * 2, 0});
    const UsageFigures figures = usage.figures(account);
    EXPECT_GT(figures.cap, 0);
    EXPECT_GT(figures.remaining, 0);
    EXPECT_FALSE(figures.warning90);
    EXPECT_FALSE(UsageLedger::spent(account, figures.used));
    EXPECT_FALSE(UsageLedger::overdrawn(account, figures.used));
}

TEST_F(Store, TelemetryKeepsTheLatestRecords)
{
    const Account account = ann();
    Telemetry telemetry(database, clock);
    telemetry.add(account.id, "{}");
    database.execute("UPDATE telemetry SET id = 1");
    database.execute("INSERT INTO telemetry(id, account_id, received_at, record)"
                     " VALUES(?, ?, 0, '{}')",
                     {Telemetry::keptRecords, account.id});
    telemetry.add(account.id, "{}");
    EXPECT_EQ(rowsOf("telemetry"), 2);
}

TEST_F(Store, UploadedLogsArePrivateAndTheOldestAreDeleted)
{
    UploadedLogs logs(directory.path() / "logs", clock, 2);
    for (const auto &[account, text] : std::vector<std::pair<int, std::string>>{
             {1, "one"}, {11, "eleven"}, {1, "two"}, {1, "three"}}) {
        EXPECT_TRUE(logs.store(account, text));
        clock.advance(seconds(1));
    }
    std::set<std::string> stored;
    for (const auto &entry : std::filesystem::directory_iterator(directory.path() / "logs")) {
        EXPECT_EQ(modeOf(entry.path()), 0600U);
        std::ifstream input(entry.path());
        std::string text;
        std::getline(input, text);
        stored.insert(text);
    }
    EXPECT_EQ(stored, std::set<std::string>({"two", "three", "eleven"}));
}

TEST_F(Store, UnwritableLogDirectoryIsAFailure)
{
    std::ofstream(directory.path() / "logs") << "a file in the way";
    UploadedLogs logs(directory.path() / "logs", clock, 2);
    EXPECT_FALSE(logs.store(1, "one"));
}

} // namespace
} // namespace quellora::server
