#include "store/SqliteDatabase.h"

#include "store/Migrations.h"

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quellora::server {
namespace {

constexpr int busyMilliseconds = 5000;
/// More statements than the program has.
constexpr std::size_t mostKept = 256;

const Dialect sqliteDialect{
    "INTEGER PRIMARY KEY",
    "BLOB",
    "lower(hex(randomblob(16)))",
    {"CREATE TRIGGER audit_unchanged BEFORE UPDATE ON audit"
     " BEGIN SELECT RAISE(ABORT, 'the audit trail only grows'); END",
     "CREATE TRIGGER audit_kept BEFORE DELETE ON audit"
     " BEGIN SELECT RAISE(ABORT, 'the audit trail only grows'); END"},
    // In the order of their creation.
    "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%'"
    " ORDER BY rowid",
    "SELECT name, type FROM pragma_table_info(?) ORDER BY cid"};

DatabaseError::Kind kindOf(int code)
{
    return code == SQLITE_BUSY || code == SQLITE_LOCKED ? DatabaseError::Kind::Unavailable
                                                        : DatabaseError::Kind::Failed;
}

/// Creates the file with mode 0600; the library would create it with the default mode.
void prepareFile(const std::filesystem::path &file)
{
    std::filesystem::path directory = file.parent_path();
    std::error_code error;
    if (!directory.empty() && !std::filesystem::exists(directory, error)) {
        std::filesystem::create_directories(directory, error);
        if (error)
            throw DatabaseError("cannot create " + directory.string() + ": " + error.message());
        ::chmod(directory.c_str(), S_IRWXU);
    }
    const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0)
        throw DatabaseError("cannot open " + file.string() + ": " + std::strerror(errno));
    ::fchmod(descriptor, S_IRUSR | S_IWUSR);
    ::close(descriptor);
}

class SqliteRow : public Database::Row
{
public:
    explicit SqliteRow(sqlite3_stmt *statement) : m_statement(statement) {}
    bool isNull(int column) const override
    {
        return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
    }
    std::int64_t integer(int column) const override
    {
        return sqlite3_column_int64(m_statement, column);
    }
    std::string text(int column) const override { return bytes(column); }
    std::string bytes(int column) const override
    {
        // The conversion to bytes must precede asking for their number.
        const void *data = sqlite3_column_blob(m_statement, column);
        const int length = sqlite3_column_bytes(m_statement, column);
        return data ? std::string(static_cast<const char *>(data), static_cast<std::size_t>(length))
                    : std::string();
    }

private:
    sqlite3_stmt *m_statement;
};

} // namespace

/// One use of a prepared statement, which is kept for the next one unless it fails.
class SqliteDatabase::Statement
{
public:
    Statement(SqliteDatabase &database, const std::string &sql, const std::vector<Value> &values)
        : m_database(database), m_sql(sql), m_statement(database.take(sql))
    {
        int index = 1;
        for (const Value &value : values)
            check(bind(index++, value));
    }
    ~Statement()
    {
        if (m_statement)
            m_database.keep(m_sql, m_statement);
    }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    bool step()
    {
        const int code = sqlite3_step(m_statement);
        if (code == SQLITE_ROW)
            return true;
        check(code);
        return false;
    }
    sqlite3_stmt *handle() const { return m_statement; }

private:
    int bind(int index, const Value &value)
    {
        if (const auto *number = std::get_if<std::int64_t>(&value))
            return sqlite3_bind_int64(m_statement, index, *number);
        if (const auto *text = std::get_if<std::string>(&value)) {
            if (!isStorableText(*text))
                fail("a text is not valid UTF-8");
            return sqlite3_bind_text64(m_statement, index, text->data(), text->size(),
                                       SQLITE_STATIC, SQLITE_UTF8);
        }
        if (const auto *bytes = std::get_if<Bytes>(&value))
            return sqlite3_bind_blob64(m_statement, index, bytes->bytes.data(), bytes->bytes.size(),
                                       SQLITE_STATIC);
        return sqlite3_bind_null(m_statement, index);
    }

    void check(int code)
    {
        if (code == SQLITE_OK || code == SQLITE_DONE)
            return;
        fail(sqlite3_errmsg(m_database.m_connection), kindOf(code));
    }

    [[noreturn]] void fail(const std::string &reason,
                           DatabaseError::Kind kind = DatabaseError::Kind::Failed)
    {
        sqlite3_finalize(m_statement);
        m_statement = nullptr;
        throw DatabaseError(reason, kind);
    }

    SqliteDatabase &m_database;
    const std::string &m_sql;
    sqlite3_stmt *m_statement;
};

SqliteDatabase::SqliteDatabase(const std::filesystem::path &file)
{
    if (file.empty())
        throw DatabaseError("no place for the data file: set data_file, XDG_DATA_HOME or HOME");
    prepareFile(file);
    if (sqlite3_open_v2(file.c_str(), &m_connection, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        const std::string reason = sqlite3_errmsg(m_connection);
        sqlite3_close(m_connection);
        throw DatabaseError("cannot open " + file.string() + ": " + reason);
    }
    sqlite3_busy_timeout(m_connection, busyMilliseconds);
    try {
        execute("PRAGMA foreign_keys = ON");
        execute("PRAGMA secure_delete = ON");
        // Commits append to a log: one that need not outlive a power failure costs no disk flush.
        execute("PRAGMA journal_mode = WAL");
        execute("PRAGMA synchronous = FULL");
        // In KiB. The system caches the file as well, so a long history needs no more memory here.
        execute("PRAGMA cache_size = -512");
        migrate(*this);
    } catch (const DatabaseError &problem) {
        close();
        throw DatabaseError("cannot use " + file.string() + ": " + problem.what(), problem.kind());
    }
}

SqliteDatabase::~SqliteDatabase()
{
    close();
}

void SqliteDatabase::close()
{
    for (const auto &[sql, statement] : m_statements)
        sqlite3_finalize(statement);
    sqlite3_close(m_connection);
}

sqlite3_stmt *SqliteDatabase::take(const std::string &sql)
{
    if (const auto kept = m_statements.extract(sql))
        return kept.mapped();
    sqlite3_stmt *statement = nullptr;
    const int code = sqlite3_prepare_v2(m_connection, sql.c_str(), -1, &statement, nullptr);
    if (code != SQLITE_OK)
        throw DatabaseError(sqlite3_errmsg(m_connection), kindOf(code));
    return statement;
}

void SqliteDatabase::keep(const std::string &sql, sqlite3_stmt *statement)
{
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    // Settings of the connection may take effect while they are prepared. A callback may have used
    // the same statement meanwhile.
    const bool isSetting = sql.rfind("PRAGMA", 0) == 0;
    if (isSetting || m_statements.size() >= mostKept ||
        !m_statements.emplace(sql, statement).second)
        sqlite3_finalize(statement);
}

const Dialect &SqliteDatabase::dialect() const
{
    return sqliteDialect;
}

void SqliteDatabase::forgetDeleted()
{
    // The rows were overwritten in the file; the log of changes has them still.
    query("PRAGMA wal_checkpoint(TRUNCATE)", {}, [](const Row &) {});
}

void SqliteDatabase::flush()
{
    query("PRAGMA wal_checkpoint(PASSIVE)", {}, [](const Row &) {});
}

std::int64_t SqliteDatabase::schemaVersion()
{
    std::int64_t version = 0;
    query("PRAGMA user_version", {}, [&](const Row &row) { version = row.integer(0); });
    return version;
}

void SqliteDatabase::setSchemaVersion(std::int64_t version)
{
    execute("PRAGMA user_version = " + std::to_string(version));
}

int SqliteDatabase::execute(const std::string &sql, const std::vector<Value> &values)
{
    const std::lock_guard lock(m_mutex);
    Statement statement(*this, sql, values);
    while (statement.step()) {
    }
    return sqlite3_changes(m_connection);
}

void SqliteDatabase::query(const std::string &sql, const std::vector<Value> &values,
                           const OnRow &onRow)
{
    const std::lock_guard lock(m_mutex);
    Statement statement(*this, sql, values);
    while (statement.step())
        onRow(SqliteRow(statement.handle()));
}

void SqliteDatabase::run(const char *begin, const std::function<void()> &work)
{
    execute(begin);
    m_inTransaction = true;
    try {
        work();
        execute("COMMIT");
    } catch (...) {
        sqlite3_exec(m_connection, "ROLLBACK", nullptr, nullptr, nullptr);
        m_inTransaction = false;
        throw;
    }
    m_inTransaction = false;
}

void SqliteDatabase::transaction(const std::function<void()> &work, Work kind)
{
    const std::lock_guard lock(m_mutex);
    if (m_inTransaction) {
        work();
        return;
    }
    if (kind != Work::Relaxed && kind != Work::RelaxedRepeatable) {
        run("BEGIN IMMEDIATE", work);
        return;
    }
    const auto restore = [this] { execute("PRAGMA synchronous = FULL"); };
    execute("PRAGMA synchronous = NORMAL");
    try {
        run("BEGIN IMMEDIATE", work);
    } catch (...) {
        restore();
        throw;
    }
    restore();
}

void SqliteDatabase::snapshot(const std::function<void()> &work)
{
    const std::lock_guard lock(m_mutex);
    run("BEGIN", work);
}

} // namespace quellora::server
