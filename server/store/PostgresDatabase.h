#pragma once

#include "store/PostgresConnection.h"

#include <condition_variable>
#include <mutex>

namespace quellora::server {

/// The store on a PostgreSQL server, shared by all instances that use it, over a small pool of
/// connections. Nothing outlives a transaction on a connection, so that a pooler may assign the
/// servers. A broken connection is replaced; work that cannot have taken effect is repeated a few
/// times before it fails.
class PostgresDatabase final : public Database
{
public:
    /// Connects and migrates.
    explicit PostgresDatabase(PostgresSettings settings);
    ~PostgresDatabase() override;
    PostgresDatabase(const PostgresDatabase &) = delete;
    PostgresDatabase &operator=(const PostgresDatabase &) = delete;

    int execute(const std::string &sql, const std::vector<Value> &values = {}) override;
    void query(const std::string &sql, const std::vector<Value> &values,
               const OnRow &onRow) override;
    void transaction(const std::function<void()> &work, Work kind = Work::Once) override;
    void snapshot(const std::function<void()> &work) override;
    void scan(const std::string &sql, const OnRow &onRow) override;
    void lockKey(const std::string &key) override;
    bool tryLockKey(const std::string &key) override;
    void announce(const std::string &topic) override;
    const Dialect &dialect() const override;
    bool isShared() const override { return true; }
    void continueNumbers(const std::string &table) override;
    /// The server reuses the place by itself.
    void forgetDeleted() override {}
    /// The server flushes every commit.
    void flush() override {}
    std::int64_t schemaVersion() override;
    void setSchemaVersion(std::int64_t version) override;

    const PostgresSettings &settings() const { return m_settings; }
    /// The channel of announce().
    static constexpr const char *channel = "quellora_changes";

private:
    class Lease;
    /// Runs @p attempt, again while @p mayRepeat says so of its error, with growing pauses.
    void repeated(const std::function<void()> &attempt,
                  const std::function<bool(const DatabaseError &)> &mayRepeat);
    void unit(const std::string &begin, const std::function<void()> &work, Work kind);
    PostgresConnection *ofThisThread() const;

    PostgresSettings m_settings;
    std::mutex m_mutex;
    std::condition_variable m_returned;
    std::vector<std::unique_ptr<PostgresConnection>> m_idle;
    int m_used = 0;
};

} // namespace quellora::server
