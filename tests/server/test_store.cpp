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

/// What is true of the SQLite file alone; test_store_contract.cpp has what both stores do.
class SqliteFile : public testing::Test
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    PasswordHasher hasher{weakCost()};
    std::filesystem::path file = directory.path() / "deep" / "backend.sqlite";
    SqliteDatabase database{file};
    Accounts accounts{database, hasher, clock};
    Sessions sessions{database, clock, hours(24), seconds(120)};

    Account ann(std::int64_t cap = 0) { return *accounts.create("ann@x.org", "pw", "local", cap); }

    /// Everything on disk: the file and the log of its latest changes.
    std::string fileBytes() const
    {
        std::ostringstream bytes;
        for (const auto &entry : std::filesystem::directory_iterator(file.parent_path()))
            bytes << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        return bytes.str();
    }
};

mode_t modeOf(const std::filesystem::path &path)
{
    struct stat info = {};
    ::stat(path.c_str(), &info);
    return info.st_mode & 0777U;
}

TEST_F(SqliteFile, FileAndDirectoryAreAccessibleToTheOwnerOnly)
{
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_EQ(modeOf(file.parent_path()), 0700U);
}

TEST_F(SqliteFile, PermissionsOfAnExistingFileAreRestricted)
{
    const auto other = directory.path() / "wide.sqlite";
    std::ofstream(other) << "";
    ::chmod(other.c_str(), 0666);
    const SqliteDatabase opened(other);
    EXPECT_EQ(modeOf(other), 0600U);
}

TEST_F(SqliteFile, InvalidAndNewerFilesAreRejected)
{
    const auto garbage = directory.path() / "garbage.sqlite";
    std::ofstream(garbage) << std::string(4096, 'x');
    EXPECT_THROW(SqliteDatabase{garbage}, DatabaseError);
    {
        SqliteDatabase newer(directory.path() / "newer.sqlite");
        newer.execute("PRAGMA user_version = 99");
    }
    EXPECT_THROW(SqliteDatabase{directory.path() / "newer.sqlite"}, DatabaseError);
    EXPECT_THROW(SqliteDatabase{"/proc/nowhere/backend.sqlite"}, DatabaseError);
    EXPECT_THROW(SqliteDatabase{std::filesystem::path()}, DatabaseError);
}

TEST_F(SqliteFile, MemoryStaysSmallForALargeFile)
{
    const auto cached = [] {
        sqlite3_int64 bytes = 0;
        sqlite3_int64 peak = 0;
        sqlite3_status64(SQLITE_STATUS_PAGECACHE_OVERFLOW, &bytes, &peak, 0);
        return bytes;
    };
    SqliteDatabase large(directory.path() / "large.sqlite");
    large.execute("INSERT INTO settings(name, value) WITH RECURSIVE n(i) AS "
                  "(SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 400) "
                  "SELECT 'name' || i, hex(zeroblob(4096)) FROM n");
    const auto before = cached();
    std::int64_t length = 0;
    large.query("SELECT SUM(LENGTH(value) + INSTR(value, 'x')) FROM settings", {},
                [&](const Database::Row &row) { length = row.integer(0); });
    EXPECT_EQ(length, 400 * 8192);
    EXPECT_LT(before, 1 << 20);
    EXPECT_LT(cached(), 1 << 20);
}

TEST_F(SqliteFile, DataSurvivesReopening)
{
    ann();
    SqliteDatabase again(file);
    EXPECT_TRUE(Accounts(again, hasher, clock).findByEmail("ann@x.org"));
}

TEST_F(SqliteFile, FlushBringsTheUsageIntoTheFileItself)
{
    const Account account = ann();
    database.flush();
    UsageLedger usage(database, clock);
    addUsage(usage, clock, account.id, {1, 2});
    const auto usageInTheFileAlone = [&] {
        const auto copied = directory.path() / "copy.sqlite";
        std::filesystem::copy_file(file, copied, std::filesystem::copy_options::overwrite_existing);
        SqliteDatabase copy(copied);
        return UsageLedger(copy, clock).current(account.id).total();
    };
    EXPECT_EQ(usageInTheFileAlone(), 0);
    database.flush();
    EXPECT_EQ(usageInTheFileAlone(), 3);
}

TEST_F(SqliteFile, FileContainsNoSecrets)
{
    const Account account = *accounts.create("ann@x.org", "open sesame", "local", 0);
    const IssuedSession session = sessions.issue(account.id);
    const std::string bytes = fileBytes();
    EXPECT_NE(bytes.find("ann@x.org"), std::string::npos);
    EXPECT_EQ(bytes.find("open sesame"), std::string::npos);
    EXPECT_EQ(bytes.find(session.token), std::string::npos);
}

} // namespace
} // namespace quellora::server
