#include "store/UploadedLogs.h"

#include "base/Log.h"
#include "base/Text.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace quellora::server {
namespace {

constexpr std::size_t pieceBytes = 1024U * 1024U;

/// The account in the name "account-ID-…" of a stored file, or nothing.
std::optional<std::int64_t> accountOfFile(const std::string &name)
{
    const std::string prefix = "account-";
    if (name.rfind(prefix, 0) != 0)
        return std::nullopt;
    const std::string rest = name.substr(prefix.size());
    return parseCount(rest.substr(0, rest.find('-')));
}

} // namespace

UploadedLogs::UploadedLogs(Database &database, const Clock &clock, int keptPerAccount)
    : m_database(database), m_clock(clock), m_keptPerAccount(keptPerAccount)
{}

void UploadedLogs::insert(std::int64_t accountId, const std::string &text, std::int64_t receivedAt)
{
    m_database.transaction([&] {
        std::int64_t log = 0;
        m_database.query(
            "INSERT INTO uploaded_logs(account_id, received_at, size) VALUES(?, ?, ?) RETURNING id",
            {accountId, receivedAt, static_cast<std::int64_t>(text.size())},
            [&](const Database::Row &row) { log = row.integer(0); });
        for (std::size_t at = 0; at < text.size(); at += pieceBytes)
            m_database.execute(
                "INSERT INTO uploaded_log_parts(log_id, part, content) VALUES(?, ?, ?)",
                {log, static_cast<std::int64_t>(at / pieceBytes),
                 Database::Bytes{text.substr(at, pieceBytes)}});
        m_database.execute("DELETE FROM uploaded_logs WHERE account_id = ? AND id NOT IN"
                           " (SELECT id FROM uploaded_logs WHERE account_id = ?"
                           " ORDER BY received_at DESC, id DESC LIMIT ?)",
                           {accountId, accountId, std::int64_t{m_keptPerAccount}});
    });
}

bool UploadedLogs::store(std::int64_t accountId, const std::string &text)
{
    try {
        insert(accountId, text, toSeconds(m_clock.now()));
        return true;
    } catch (const DatabaseError &problem) {
        Log::event(std::string("[UploadedLogs] ERROR: could not store an uploaded log: ") +
                   problem.what());
        return false;
    }
}

std::vector<UploadedLog> UploadedLogs::select(const std::string &condition,
                                              const std::vector<Database::Value> &values)
{
    std::vector<UploadedLog> logs;
    m_database.query(
        "SELECT id, account_id, received_at, size FROM uploaded_logs WHERE " + condition +
            " ORDER BY received_at DESC, id DESC",
        values, [&](const Database::Row &row) {
            logs.push_back({row.integer(0), row.integer(1), row.integer(2), row.integer(3)});
        });
    return logs;
}

std::vector<UploadedLog> UploadedLogs::list(std::int64_t accountId)
{
    return select("account_id = ? OR ? = 0", {accountId, accountId});
}

std::optional<UploadedLog> UploadedLogs::find(std::int64_t id)
{
    const auto found = select("id = ?", {id});
    if (found.empty())
        return std::nullopt;
    return found.front();
}

void UploadedLogs::read(std::int64_t id, const std::function<bool(std::string_view)> &onPiece)
{
    bool isWanted = true;
    for (std::int64_t part = 0; isWanted; ++part) {
        std::optional<std::string> piece;
        m_database.query("SELECT content FROM uploaded_log_parts WHERE log_id = ? AND part = ?",
                         {id, part}, [&](const Database::Row &row) { piece = row.bytes(0); });
        isWanted = piece && onPiece(*piece);
    }
}

void UploadedLogs::adopt(const std::filesystem::path &directory)
{
    std::error_code error;
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(directory, error)) {
        if (entry.is_regular_file(error) && accountOfFile(entry.path().filename().string()))
            files.push_back(entry.path());
    }
    // Their names order the files of an account by time.
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path &file : files) {
        std::ifstream input(file, std::ios::binary);
        std::ostringstream text;
        text << input.rdbuf();
        const auto written = std::filesystem::last_write_time(file, error);
        const auto age = std::filesystem::file_time_type::clock::now() - written;
        const auto received =
            toSeconds(m_clock.now() - std::chrono::duration_cast<std::chrono::seconds>(age));
        const std::int64_t account = *accountOfFile(file.filename().string());
        try {
            bool isKnown = false;
            m_database.query("SELECT 1 FROM accounts WHERE id = ?", {account},
                             [&](const Database::Row &) { isKnown = true; });
            // The log of a deleted account goes the way of the account.
            if (isKnown && input)
                insert(account, text.str(), received);
            if (input)
                std::filesystem::remove(file, error);
        } catch (const DatabaseError &problem) {
            Log::event(std::string("[UploadedLogs] ERROR: could not move an uploaded log into the "
                                   "store: ") +
                       problem.what());
        }
    }
    if (!files.empty())
        std::filesystem::remove(directory, error);
}

} // namespace quellora::server
