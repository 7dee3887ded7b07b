#pragma once

#include "base/JsonAccess.h"
#include "http/BackendServer.h"
#include "model/BlockingAnswer.h"
#include "store/OpenDatabase.h"
#include "store/SqliteDatabase.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace quellora::server {

/// A clock that moves only when advanced.
class ManualClock : public Clock
{
public:
    TimePoint now() const override { return TimePoint(std::chrono::seconds(m_seconds)); }
    void advance(std::chrono::seconds by) { m_seconds += by.count(); }

private:
    /// 15 January 2026, 12:00 UTC: in the middle of a billing period.
    std::atomic<std::int64_t> m_seconds{1768478400};
};

/// A directory that is removed with the object.
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
    std::filesystem::path path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/// Password hashing at the library's lowest cost.
PasswordCost weakCost();
/// An environment of exactly these variables.
Environment environmentOf(std::map<std::string, std::string> variables);
/// Configuration from @p toml with a free port and the data file in @p directory.
Config testConfig(const TemporaryDirectory &directory, const std::string &toml = "",
                  const Environment &environment = environmentOf({}),
                  const std::vector<Provider> &providers = builtInProviders());
/// Bytes that start like a JPEG.
std::string fakeJpeg();

/// Counts an answer of now.
void addUsage(UsageLedger &usage, const Clock &clock, std::int64_t accountId, TokenCount tokens,
              const std::string &model = "");

/// A complete outcome with token counts.
AnswerOutcome completed(std::int64_t input, std::int64_t output);

/// The backend on a free port, with an account "ann@example.org" / "correct horse".
class RunningServer
{
public:
    static constexpr const char *email = "ann@example.org";
    static constexpr const char *password = "correct horse";

    /// @p answer replaces the answers of all providers.
    explicit RunningServer(Config config, const Clock &clock, const AnswerFunction &answer = {},
                           OwnUserCheck ownUser = {});
    ~RunningServer();
    RunningServer(const RunningServer &) = delete;
    RunningServer &operator=(const RunningServer &) = delete;

    httplib::Client client() const;
    int port() const { return m_port; }
    /// The data that the server works on.
    Accounts &accounts() { return m_accounts; }
    Sessions &sessions() { return m_sessions; }
    UsageLedger &usage() { return m_usage; }
    Database &database() { return *m_database; }
    Account account();
    /// A new session token of the account, issued directly in the database.
    std::string token();
    httplib::Result login(const std::string &mail, const std::string &pass) const;
    httplib::Result verify(const std::string &bearer) const;
    httplib::Result postJson(const std::string &path, const std::string &bearer,
                             const nlohmann::json &body) const;
    httplib::Result query(const std::string &bearer, const std::string &prompt = "What is this?",
                          nlohmann::json extra = nlohmann::json::object()) const;
    /// Stops the server before the destructor does.
    void stop();
    /// The running answers of this server.
    AnswerLedger &answers() { return m_server->answers(); }
    /// Ends the grace that stop() gives to running answers.
    void hurry() { m_server->hurry(); }

private:
    PasswordHasher m_hasher;
    std::unique_ptr<Database> m_database;
    Accounts m_accounts;
    Sessions m_sessions;
    UsageLedger m_usage;
    std::unique_ptr<BackendServer> m_server;
    int m_port = 0;
    std::thread m_thread;
};

/// The JSON of each "data: " line of an event stream.
std::vector<nlohmann::json> events(const std::string &stream);
/// The concatenated texts of the "chunk" events.
std::string answerText(const std::string &stream);
/// The last event's type, "" when there is none.
std::string lastType(const std::string &stream);

} // namespace quellora::server
