#include "store/Database.h"

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quellora::server {
namespace {

constexpr int busyMilliseconds = 5000;

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

/// One prepared statement, finalised at the end of its scope.
class Statement
{
public:
    Statement(sqlite3 *connection, const std::string &sql,
              const std::vector<Database::Value> &values)
        : m_connection(connection)
    {
        check(sqlite3_prepare_v2(connection, sql.c_str(), -1, &m_statement, nullptr));
        int index = 1;
        for (const Database::Value &value : values) {
            if (const auto *number = std::get_if<std::int64_t>(&value)) {
                check(sqlite3_bind_int64(m_statement, index, *number));
            } else {
                const auto &text = std::get<std::string>(value);
                check(sqlite3_bind_text64(m_statement, index, text.data(), text.size(),
                                          SQLITE_STATIC, SQLITE_UTF8));
            }
            ++index;
        }
    }
    ~Statement() { sqlite3_finalize(m_statement); }
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
    void check(int code)
    {
        if (code == SQLITE_OK || code == SQLITE_DONE)
            return;
        const std::string reason = sqlite3_errmsg(m_connection);
        sqlite3_finalize(m_statement);
        m_statement = nullptr;
        throw DatabaseError(reason);
    }

    sqlite3 *m_connection;
    sqlite3_stmt *m_statement = nullptr;
};

constexpr int schemaVersion = 1;
constexpr const char *schema[] = {
    "CREATE TABLE accounts(id INTEGER PRIMARY KEY, email TEXT NOT NULL UNIQUE,"
    " password_hash TEXT NOT NULL, plan TEXT NOT NULL, token_cap INTEGER NOT NULL,"
    " suspended INTEGER NOT NULL DEFAULT 0, created_at INTEGER NOT NULL)",
    "CREATE TABLE sessions(id TEXT PRIMARY KEY, fingerprint TEXT NOT NULL UNIQUE,"
    " account_id INTEGER NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
    " kind TEXT NOT NULL, created_at INTEGER NOT NULL, expires_at INTEGER NOT NULL)",
    "CREATE TABLE usage(account_id INTEGER NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
    " period TEXT NOT NULL, input_tokens INTEGER NOT NULL, output_tokens INTEGER NOT NULL,"
    " queries INTEGER NOT NULL, PRIMARY KEY(account_id, period))",
    "CREATE TABLE telemetry(id INTEGER PRIMARY KEY,"
    " account_id INTEGER NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
    " received_at INTEGER NOT NULL, record TEXT NOT NULL)",
};

} // namespace

std::int64_t Database::Row::integer(int column) const
{
    return sqlite3_column_int64(m_statement, column);
}

std::string Database::Row::text(int column) const
{
    const unsigned char *bytes = sqlite3_column_text(m_statement, column);
    const int length = sqlite3_column_bytes(m_statement, column);
    return bytes ? std::string(reinterpret_cast<const char *>(bytes),
                               static_cast<std::size_t>(length))
                 : std::string();
}

Database::Database(const std::filesystem::path &file)
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
        migrate();
    } catch (const DatabaseError &problem) {
        sqlite3_close(m_connection);
        throw DatabaseError("cannot use " + file.string() + ": " + problem.what());
    }
}

Database::~Database()
{
    sqlite3_close(m_connection);
}

void Database::migrate()
{
    // The version is read under the write lock, so that two processes starting at once do not both
    // create the tables.
    transaction([this] {
        std::int64_t version = 0;
        query("PRAGMA user_version", {}, [&](const Row &row) { version = row.integer(0); });
        if (version > schemaVersion)
            throw DatabaseError("it was written by a newer version of this program");
        if (version == schemaVersion)
            return;
        for (const char *statement : schema)
            execute(statement);
        execute("PRAGMA user_version = " + std::to_string(schemaVersion));
    });
}

int Database::execute(const std::string &sql, const std::vector<Value> &values)
{
    const std::lock_guard lock(m_mutex);
    Statement statement(m_connection, sql, values);
    while (statement.step()) {
    }
    return sqlite3_changes(m_connection);
}

void Database::query(const std::string &sql, const std::vector<Value> &values,
                     const std::function<void(const Row &)> &onRow)
{
    const std::lock_guard lock(m_mutex);
    Statement statement(m_connection, sql, values);
    while (statement.step())
        onRow(Row(statement.handle()));
}

void Database::transaction(const std::function<void()> &work)
{
    const std::lock_guard lock(m_mutex);
    execute("BEGIN IMMEDIATE");
    try {
        work();
        execute("COMMIT");
    } catch (...) {
        sqlite3_exec(m_connection, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

} // namespace quellora::server
