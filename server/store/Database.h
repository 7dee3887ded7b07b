#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace quellora::server {

/// The data file could not be read or written; what() names the reason, never the data.
class DatabaseError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The backend's SQLite data file. One connection, usable from any thread: the class serialises
/// access itself. Other processes (the command line beside a running server) wait their turn for
/// up to five seconds. Every failure is a DatabaseError.
class Database
{
public:
    using Value = std::variant<std::int64_t, std::string>;

    /// Columns of the row at hand, valid during the callback only.
    class Row
    {
    public:
        explicit Row(sqlite3_stmt *statement) : m_statement(statement) {}
        std::int64_t integer(int column) const;
        std::string text(int column) const;

    private:
        sqlite3_stmt *m_statement;
    };

    /// Opens or creates the file (mode 0600, directories 0700) and brings the tables up to date.
    explicit Database(const std::filesystem::path &file);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    /// Runs one statement and answers how many rows it changed.
    int execute(const std::string &sql, const std::vector<Value> &values = {});
    /// Runs one statement and hands over each row.
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
