#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace quellora::server {

/// The data file could not be read or written. what() gives the reason and contains no data.
class DatabaseError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The backend's SQLite data file: one connection, usable from any thread. Waits up to five seconds
/// while another process (the command line beside a running server) writes. Every failure throws a
/// DatabaseError.
class Database
{
public:
    using Value = std::variant<std::int64_t, std::string>;

    /// Columns of the current row, valid during the callback only.
    class Row
    {
    public:
        explicit Row(sqlite3_stmt *statement) : m_statement(statement) {}
        std::int64_t integer(int column) const;
        std::string text(int column) const;

    private:
        sqlite3_stmt *m_statement;
    };

    /// Opens or creates the file (mode 0600, directories 0700) and creates missing tables.
    explicit Database(const std::filesystem::path &file);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    /// Runs one statement and returns the number of changed rows.
    int execute(const std::string &sql, const std::vector<Value> &values = {});
    /// Runs one statement and passes each row to @p onRow.
    void query(const std::string &sql, const std::vector<Value> &values,
               const std::function<void(const Row &)> &onRow);
    /// Runs @p work as one unit: committed when it returns, rolled back when it throws.
    void transaction(const std::function<void()> &work);

private:
    void migrate();

    std::recursive_mutex m_mutex;
    sqlite3 *m_connection = nullptr;
};

} // namespace quellora::server
