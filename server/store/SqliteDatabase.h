#pragma once

#include "store/Database.h"

#include <filesystem>
#include <mutex>
#include <string>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace quellora::server {

/// The store in one SQLite file: one connection, usable from any thread. Waits up to five seconds
/// while another process (the command line beside a running server) writes.
class SqliteDatabase final : public Database
{
public:
    /// Opens or creates the file (mode 0600, directories 0700) and migrates it.
    explicit SqliteDatabase(const std::filesystem::path &file);
    ~SqliteDatabase() override;
    SqliteDatabase(const SqliteDatabase &) = delete;
    SqliteDatabase &operator=(const SqliteDatabase &) = delete;

    int execute(const std::string &sql, const std::vector<Value> &values = {}) override;
    void query(const std::string &sql, const std::vector<Value> &values,
               const OnRow &onRow) override;
    void transaction(const std::function<void()> &work, Work kind = Work::Once) override;
    void snapshot(const std::function<void()> &work) override;
    void scan(const std::string &sql, const OnRow &onRow) override { query(sql, {}, onRow); }
    /// Transactions follow one another, so that nothing is left to lock.
    void lockKey(const std::string &) override {}
    bool tryLockKey(const std::string &) override { return true; }
    /// Other processes find out by looking.
    void announce(const std::string &) override {}
    const Dialect &dialect() const override;
    bool isShared() const override { return false; }
    /// New numbers follow the greatest one anyway.
    void continueNumbers(const std::string &) override {}
    void forgetDeleted() override;
    void flush() override;
    std::int64_t schemaVersion() override;
    void setSchemaVersion(std::int64_t version) override;

private:
    /// The prepared statement of @p sql, taken out of the kept ones or made.
    sqlite3_stmt *take(const std::string &sql);
    /// Keeps a statement for the next use.
    void keep(const std::string &sql, sqlite3_stmt *statement);
    void close();
    class Statement;
    void run(const char *begin, const std::function<void()> &work);

    std::recursive_mutex m_mutex;
    sqlite3 *m_connection = nullptr;
    bool m_inTransaction = false;
    /// Preparing a statement takes longer than most of them run.
    std::unordered_map<std::string, sqlite3_stmt *> m_statements;
};

} // namespace quellora::server
