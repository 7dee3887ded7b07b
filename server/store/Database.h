#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace quellora::server {

/// The store could not be read or written. what() gives the reason; it contains neither stored data
/// nor passwords.
class DatabaseError : public std::runtime_error
{
public:
    enum class Kind {
        /// The statement or the store itself is wrong; trying again does not help.
        Failed,
        /// The store cannot be reached now. Nothing was changed.
        Unavailable,
        /// The connection broke while a change was being made: it may or may not have happened.
        Uncertain,
    };

    explicit DatabaseError(const std::string &reason, Kind kind = Kind::Failed)
        : std::runtime_error(reason), m_kind(kind)
    {}
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

/// Where the two kinds of store want other words for the same thing.
struct Dialect
{
    /// Type and constraint of a numbered primary key.
    const char *key;
    /// Type of a column with arbitrary bytes.
    const char *bytes;
    /// Expression for 32 random hexadecimal digits.
    const char *randomKey;
    /// Statements that let rows of the table "audit" be added only.
    std::vector<const char *> appendOnlyAudit;
    /// Query for the names of the tables, each after those that it refers to.
    const char *tables;
    /// Query for names and types of the columns of the table "?".
    const char *columns;
};

/// The backend's store: SQLite in one file, or PostgreSQL shared by several instances. Statements
/// are written in the SQL that both understand, with "?" for each value. Usable from any thread.
/// Every failure throws a DatabaseError.
class Database
{
public:
    struct Bytes
    {
        std::string bytes;
    };
    using Null = std::monostate;
    using Value = std::variant<Null, std::int64_t, std::string, Bytes>;

    /// One row of a result, valid during the callback only.
    class Row
    {
    public:
        virtual ~Row() = default;
        virtual bool isNull(int column) const = 0;
        /// 0 for null.
        virtual std::int64_t integer(int column) const = 0;
        /// "" for null.
        virtual std::string text(int column) const = 0;
        /// The content of a column with bytes.
        virtual std::string bytes(int column) const = 0;
    };
    using OnRow = std::function<void(const Row &)>;

    /// What may be assumed about a transaction's work.
    enum class Work {
        /// It is repeated only while it cannot have taken effect.
        Once,
        /// Doing it twice has the effect of doing it once, so it is repeated whenever the
        /// connection breaks.
        Repeatable,
        /// Like Once; after a power failure of this machine a SQLite file may lack it, unless
        /// flush() came between.
        Relaxed,
        /// Like Repeatable, and may be lacking like Relaxed.
        RelaxedRepeatable,
    };

    virtual ~Database() = default;

    /// Runs one statement and returns the number of changed rows.
    virtual int execute(const std::string &sql, const std::vector<Value> &values = {}) = 0;
    /// Runs one statement and passes each row to @p onRow.
    virtual void query(const std::string &sql, const std::vector<Value> &values,
                       const OnRow &onRow) = 0;
    /// Runs @p work as one unit: committed when it returns, rolled back when it throws. The work
    /// may run more than once until it is committed. Inside another transaction of the same thread
    /// it belongs to that one. A statement that fails inside makes the whole unit fail.
    virtual void transaction(const std::function<void()> &work, Work kind = Work::Once) = 0;
    /// Runs @p work on one unchanging state of the store. It must not write.
    virtual void snapshot(const std::function<void()> &work) = 0;
    /// Inside a snapshot: like query() for a SELECT with however many rows; few of them are in
    /// memory at a time.
    virtual void scan(const std::string &sql, const OnRow &onRow) = 0;
    /// Inside a transaction: waits until no other one holds @p key, and holds it to its end.
    virtual void lockKey(const std::string &key) = 0;
    /// Inside a transaction: like lockKey(), but false instead of waiting.
    virtual bool tryLockKey(const std::string &key) = 0;
    /// Inside a transaction: wakes the listeners of all instances with @p topic once it is
    /// committed.
    virtual void announce(const std::string &topic) = 0;

    virtual const Dialect &dialect() const = 0;
    /// Whether several instances may use the store at a time.
    virtual bool isShared() const = 0;
    /// After rows were inserted with their numbers: new rows get greater ones.
    virtual void continueNumbers(const std::string &table) = 0;
    /// Takes deleted rows out of the files as well, as far as the program can.
    virtual void forgetDeleted() = 0;
    /// Makes all relaxed work outlast a power failure.
    virtual void flush() = 0;
    /// Number of the last migration that was applied; 0 for an empty store.
    virtual std::int64_t schemaVersion() = 0;
    virtual void setSchemaVersion(std::int64_t version) = 0;
};

/// Whether a text can be stored: UTF-8 without zero bytes.
bool isStorableText(const std::string &text);

} // namespace quellora::server
