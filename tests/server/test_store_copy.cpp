#include "PostgresCluster.h"
#include "ServerKit.h"

#include "base/Text.h"
#include "store/AnswerLedger.h"
#include "store/AuditTrail.h"
#include "store/Messages.h"
#include "store/Migrations.h"
#include "store/StoreCopy.h"
#include "store/StoredSettings.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

namespace quellora::server {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

/// Copies from a store of the first kind into one of the second.
class StoreCopy : public testing::TestWithParam<std::tuple<const char *, const char *>>
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    PasswordHasher hasher{weakCost()};
    std::unique_ptr<Database> from = store("from", std::get<0>(GetParam()));
    std::unique_ptr<Database> to = store("to", std::get<1>(GetParam()));
    std::filesystem::path file = directory.path() / "backup";
    std::string token;

    std::unique_ptr<Database> store(const std::string &name, const std::string &kind) const
    {
        Config config = testConfig(directory);
        config.dataFile = directory.path() / (name + ".sqlite");
        if (kind == "postgresql")
            config.postgres.url = PostgresCluster::shared().newDatabase();
        return openDatabase(config);
    }

    void fill()
    {
        Accounts accounts(*from, hasher, clock);
        const Account ann = *accounts.create("ann@x.org", "secret", "team", 5000);
        accounts.createInvited("bob@x.org", "local", 0);
        token = Sessions(*from, clock, hours(24), seconds(60)).issue(ann.id).token;
        UsageLedger usage(*from, clock);
        addUsage(usage, clock, ann.id, {3, 4}, "small");
        AnswerLedger(*from, clock, "gone", 4).begin(ann.id, "small", 10, 100);
        UploadedLogs(*from, clock, 3).store(ann.id, std::string("\0\xFF log", 6));
        Messages(*from, clock).add({"m", "BLOCKING", "H", "B", {}, {}, {}}, ann.id);
        StoredSettings(*from, clock).set("default_prompt", "Say \xE2\x9C\x93 \n it");
        AuditTrail(*from, clock).add("command line", "create", ann.person);
    }

    void expectTheSame()
    {
        Accounts accounts(*to, hasher, clock);
        const auto ann = accounts.authenticate("ann@x.org", "secret");
        ASSERT_TRUE(ann);
        EXPECT_EQ(ann->tokenCap, 5000);
        EXPECT_EQ(ann->person, Accounts(*from, hasher, clock).find(ann->id)->person);
        EXPECT_TRUE(Sessions(*to, clock, hours(24), seconds(60)).find(token));
        EXPECT_EQ(UsageLedger(*to, clock).current(ann->id), (TokenCount{3, 4}));
        std::string log;
        UploadedLogs logs(*to, clock, 3);
        logs.read(logs.list(ann->id).at(0).id, [&](std::string_view piece) {
            log += piece;
            return true;
        });
        EXPECT_EQ(log, std::string("\0\xFF log", 6));
        EXPECT_EQ(Messages(*to, clock).forAccount(ann->id)->id, "m");
        EXPECT_EQ(StoredSettings(*to, clock).get("default_prompt"), "Say \xE2\x9C\x93 \n it");
        EXPECT_EQ(AuditTrail(*to, clock).list(9).size(), 1U);
        // What ran in the old store does not run in the new one.
        clock.advance(AnswerLedger::lease);
        EXPECT_EQ(AnswerLedger(*to, clock, "new", 4).expire(), 1);
        // New rows get numbers of their own.
        const auto eve = accounts.createInvited("eve@x.org", "local", 0);
        ASSERT_TRUE(eve);
        EXPECT_GT(eve->id, 2);
    }

    std::string contents(const std::filesystem::path &path) const
    {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
};

INSTANTIATE_TEST_SUITE_P(Stores, StoreCopy,
                         testing::Combine(testing::Values("sqlite", "postgresql"),
                                          testing::Values("sqlite", "postgresql")),
                         [](const auto &kinds) {
                             return std::string(std::get<0>(kinds.param)) + "_" +
                                    std::get<1>(kinds.param);
                         });

TEST_P(StoreCopy, BackupIsRestoredIntoAnEmptyStore)
{
    fill();
    const RowCounts written = backUp(*from, file);
    struct stat info = {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
    RowCounts read = restore(*to, file);
    std::erase_if(read, [](const auto &entry) { return entry.second == 0; });
    EXPECT_EQ(read, written);
    EXPECT_EQ(written.at("accounts"), 2);
    EXPECT_EQ(written.count("changes"), 0U);
    expectTheSame();
}

TEST_P(StoreCopy, StoreIsCopiedIntoAnEmptyOne)
{
    fill();
    const RowCounts copied = copyStore(*from, *to);
    EXPECT_EQ(copied.at("accounts"), 2);
    expectTheSame();
}

TEST_P(StoreCopy, FilledStoreIsRefused)
{
    fill();
    backUp(*from, file);
    EXPECT_THROW(restore(*from, file), DatabaseError);
    Accounts(*to, hasher, clock).createInvited("own@x.org", "local", 0);
    EXPECT_THROW(restore(*to, file), DatabaseError);
    EXPECT_THROW(copyStore(*from, *to), DatabaseError);
    EXPECT_EQ(Accounts(*to, hasher, clock).all().size(), 1U);
}

TEST_P(StoreCopy, DamagedBackupLeavesTheStoreEmpty)
{
    fill();
    backUp(*from, file);
    const std::string whole = contents(file);
    const auto damaged = directory.path() / "damaged";
    std::string other = whole;
    other.replace(other.find("ann@x.org"), 3, "eve");
    std::string newer = whole;
    newer.replace(newer.find("\"version\":1"), 11, "\"version\":2");
    for (const std::string &text :
         {whole.substr(0, whole.size() / 2), whole.substr(0, whole.rfind('{')), other, newer,
          std::string(), std::string("nonsense\n"), whole + "[]\n"}) {
        std::ofstream(damaged, std::ios::binary) << text;
        EXPECT_THROW(restore(*to, damaged), DatabaseError);
        EXPECT_TRUE(Accounts(*to, hasher, clock).all().empty());
    }
    EXPECT_THROW(restore(*to, directory.path() / "missing"), DatabaseError);
    EXPECT_NO_THROW(restore(*to, file));
}

TEST_P(StoreCopy, BackupNeverReplacesAFileAndLeavesNoRest)
{
    fill();
    std::ofstream(file) << "precious";
    EXPECT_THROW(backUp(*from, file), DatabaseError);
    EXPECT_EQ(contents(file), "precious");
    EXPECT_THROW(backUp(*from, directory.path() / "no" / "such" / "folder"), DatabaseError);
    for (const auto &entry : std::filesystem::directory_iterator(directory.path()))
        EXPECT_NE(entry.path().extension(), ".new");
}

TEST_P(StoreCopy, PersonIsExportedWithoutSecretsAndOthers)
{
    fill();
    Accounts accounts(*from, hasher, clock);
    const std::string text = personRecord(*from, accounts.findByEmail("ann@x.org")->id);
    const auto person = nlohmann::json::parse(text);
    EXPECT_EQ(person.at("accounts").at(0).at("email"), "ann@x.org");
    EXPECT_EQ(person.at("usage_daily").at(0).at("output_tokens"), 4);
    EXPECT_EQ(person.at("uploaded_logs").at(0).at("text"), std::string("\0\xEF\xBF\xBD log", 8));
    EXPECT_EQ(person.at("accounts").at(0).at("created_at"),
              isoTime(TimePoint(seconds(toSeconds(clock.now())))));
    EXPECT_EQ(person.at("accounts").at(0).at("last_seen_at"), nullptr);
    EXPECT_EQ(person.at("messages").at(0).at("created_at"),
              isoTime(TimePoint(seconds(toSeconds(clock.now())))));
    EXPECT_EQ(person.at("messages").size(), 1U);
    EXPECT_EQ(person.at("audit").size(), 1U);
    EXPECT_EQ(person.at("sessions").size(), 1U);
    for (const std::string &absent :
         {std::string("bob@x.org"), std::string("argon2"), tokenFingerprint(token), token})
        EXPECT_EQ(text.find(absent), std::string::npos) << absent;
}

TEST(SqliteMigration, FileOfTheFirstVersionIsMigrated)
{
    const TemporaryDirectory directory;
    const ManualClock clock;
    const PasswordHasher hasher(weakCost());
    const auto file = directory.path() / "old.sqlite";
    sqlite3 *old = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &old), SQLITE_OK);
    const std::string made =
        "CREATE TABLE accounts(id INTEGER PRIMARY KEY, email TEXT NOT NULL UNIQUE,"
        " password_hash TEXT NOT NULL, plan TEXT NOT NULL, token_cap INTEGER NOT NULL,"
        " suspended INTEGER NOT NULL DEFAULT 0, created_at INTEGER NOT NULL);"
        "CREATE TABLE sessions(id TEXT PRIMARY KEY, fingerprint TEXT NOT NULL UNIQUE,"
        " account_id INTEGER NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
        " kind TEXT NOT NULL, created_at INTEGER NOT NULL, expires_at INTEGER NOT NULL);"
        "CREATE TABLE usage(account_id INTEGER NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
        " period TEXT NOT NULL, input_tokens INTEGER NOT NULL, output_tokens INTEGER NOT NULL,"
        " queries INTEGER NOT NULL, PRIMARY KEY(account_id, period));"
        "CREATE TABLE telemetry(id INTEGER PRIMARY KEY,"
        " account_id INTEGER NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
        " received_at INTEGER NOT NULL, record TEXT NOT NULL);"
        "INSERT INTO accounts VALUES(1, 'a@x.org', '" +
        hasher.hash("pw") +
        "', 'local', 7, 0, 5), (2, 'b@x.org', 'h', 'local', 0, 1, 6);"
        "INSERT INTO usage VALUES(1, '2026-01', 11, 12, 2);"
        "PRAGMA user_version = 1;";
    ASSERT_EQ(sqlite3_exec(old, made.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(old);
    SqliteDatabase database(file);
    EXPECT_EQ(database.schemaVersion(), newestSchema());
    Accounts accounts(database, hasher, clock);
    const auto first = accounts.authenticate("a@x.org", "pw");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->tokenCap, 7);
    EXPECT_NE(first->person, accounts.find(2)->person);
    EXPECT_TRUE(accounts.find(2)->suspended);
    EXPECT_EQ(UsageLedger(database, clock).current(1), (TokenCount{11, 12}));
}

} // namespace
} // namespace quellora::server
