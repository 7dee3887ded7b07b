#pragma once

#include "http/BackendServer.h"
#include "model/JsonAccess.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace quellora::server {

/// A clock that only moves when told.
class ManualClock : public Clock
{
public:
    TimePoint now() const override { return TimePoint(std::chrono::seconds(m_seconds)); }
    void advance(std::chrono::seconds by) { m_seconds += by.count(); }

private:
    /// 15 January 2026, 12:00 UTC: well inside a billing period.
    std::atomic<std::int64_t> m_seconds{1768478400};
};

/// A directory that goes away with the object.
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
/// Defaults with offline models, short waits and no environment.
Config testConfig(const TemporaryDirectory &directory);
/// Smallest thing that starts like a JPEG.
std::string fakeJpeg();

/// A model client that does what the test says.
class ScriptedClient : public ModelClient
{
public:
    using Script = std::function<AnswerOutcome(const ModelRequest &, const TextSink &, StopToken)>;
    explicit ScriptedClient(Script script) : m_script(std::move(script)) {}
    AnswerOutcome answer(const ModelRequest &request, const TextSink &sink, StopToken stop) override
    {
        return m_script(request, sink, stop);
    }

private:
    Script m_script;
};

/// Complete outcome with token figures.
AnswerOutcome completed(std::int64_t input, std::int64_t output);

/// The backend on a free port, with an account "ann@example.org" / "correct horse".
class RunningServer
{
public:
    static constexpr const char *email = "ann@example.org";
    static constexpr const char *password = "correct horse";

    /// Every model is answered by @p client; without one the configured clients answer.
    explicit RunningServer(Config config, const Clock &clock,
                           std::shared_ptr<ModelClient> client = nullptr,
                           PageRoutes::OwnUserCheck ownUser = {});
    ~RunningServer();
    RunningServer(const RunningServer &) = delete;
    RunningServer &operator=(const RunningServer &) = delete;

    httplib::Client client() const;
    int port() const { return m_port; }
    Services &services() { return m_server->services(); }
    Account account();
    /// A session token of the account, without going through HTTP.
    std::string token();
    httplib::Result login(const std::string &mail, const std::string &pass) const;
    httplib::Result verify(const std::string &bearer) const;
    httplib::Result postJson(const std::string &path, const std::string &bearer,
                             const nlohmann::json &body) const;
    httplib::Result query(const std::string &bearer, const std::string &prompt = "What is this?",
                          nlohmann::json extra = nlohmann::json::object()) const;
    /// Ends the server early; the destructor does it otherwise.
    void stop();

private:
    PasswordHasher m_hasher;
    Database m_database;
    std::unique_ptr<BackendServer> m_server;
    int m_port = 0;
    std::thread m_thread;
};

/// The JSON of each "data: " line of an event stream.
std::vector<nlohmann::json> events(const std::string &stream);
/// Joined texts of the "chunk" events.
std::string answerText(const std::string &stream);
/// The last event's type, "" when there is none.
std::string lastType(const std::string &stream);

} // namespace quellora::server
