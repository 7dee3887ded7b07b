#pragma once

#include "base/Secrets.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

/// Where the server listens and who may reach it.
struct ServerSettings
{
    std::string host = "127.0.0.1";
    /// 0 lets the system pick a free port.
    int port = 9878;
    /// Must be set to listen anywhere but on the loopback interface.
    bool allowRemote = false;
    /// Host header names accepted besides the loopback names and `host`.
    std::vector<std::string> allowedHosts;
    /// Whether /login offers sign-in without a password to the user who runs the server.
    bool oneClickSignIn = true;
    /// Worker threads; each running answer holds one.
    std::size_t threads = 48;
};

/// Sign-in sessions and password hashing.
struct SecuritySettings
{
    std::chrono::seconds sessionLifetime = std::chrono::hours(24 * 30);
    /// How long the single-use token of a browser sign-in may be redeemed.
    std::chrono::seconds handoverLifetime = std::chrono::minutes(2);
    PasswordCost passwordCost;
};

/// Request rates and sizes.
struct LimitSettings
{
    int queriesPerMinute = 30;
    int concurrentQueries = 4;
    int loginFailures = 10;
    std::chrono::seconds loginWindow = std::chrono::minutes(5);
    int authRequestsPerMinute = 240;
    std::size_t queryBytes = 24U * 1024U * 1024U;
    std::size_t logBytes = 64U * 1024U * 1024U;
    int keptLogs = 10;
};

/// A message of the operator, shown by the app above the prompt box.
struct AdminMessage
{
    std::string id;
    std::string type = "INFORMATIONAL";
    std::string headerText;
    std::string bodyMarkdown;
    std::optional<std::string> actionLabel;
    std::optional<std::string> actionUrl;
    std::optional<std::int64_t> forceUpdateInMinutes;
};

/// What every account's configuration record says.
struct ServiceSettings
{
    std::string defaultPrompt;
    std::string minimumAppVersion = "1.0.0";
    std::int64_t heartbeatIntervalSeconds = 3600;
    /// Token allowance of new accounts per billing period; 0 means none.
    std::int64_t defaultTokenCap = 0;
    std::string defaultPlan = "local";
    std::optional<bool> requestLogs;
    std::optional<bool> debugLogging;
    std::optional<AdminMessage> adminMessage;

    ServiceSettings();
};

/// Which kind of service answers for a model.
enum class Provider { Offline, Anthropic, OpenAi };

/// One model of the picker and where it is answered.
struct ModelSettings
{
    std::string id;
    std::string displayName;
    std::string descriptor;
    Provider provider = Provider::Offline;
    /// The provider's own name of the model.
    std::string upstream;
};

/// Reaching one provider.
struct UpstreamSettings
{
    bool enabled = false;
    std::string baseUrl;
    std::string apiKey;
    int maxOutputTokens = 8192;
};

/// Waiting for a model.
struct TimingSettings
{
    /// Longest silence towards the client; also how long an answer may stay undecided between
    /// an HTTP error and a stream.
    std::chrono::milliseconds keepAlive = std::chrono::seconds(8);
    std::chrono::milliseconds connect = std::chrono::seconds(5);
    /// Longest silence of a model before its answer is given up.
    std::chrono::milliseconds stall = std::chrono::seconds(180);
    /// How long stopping waits for running answers to be closed.
    std::chrono::milliseconds stopGrace = std::chrono::seconds(3);
};

/// Reading text from screenshots without a model.
struct OfflineSettings
{
    /// Ignore configured providers.
    bool force = false;
    std::string languages = "eng";
    /// Directory of the language data; empty means the library's own.
    std::string dataDirectory;
    /// Reading is cut short after this long and says so.
    std::chrono::milliseconds budget = std::chrono::milliseconds(6000);
};

/// Everything the backend can be told: built-in defaults, then the file, then the environment.
struct Config
{
    ServerSettings server;
    SecuritySettings security;
    LimitSettings limits;
    ServiceSettings service;
    TimingSettings timing;
    OfflineSettings offline;
    UpstreamSettings anthropic;
    UpstreamSettings openAi;
    /// Never empty after finishing; the first is the default unless defaultModel says otherwise.
    std::vector<ModelSettings> models;
    std::string defaultModel;
    std::filesystem::path dataFile;

    using Environment = std::function<std::optional<std::string>(const char *name)>;
    /// The process's environment; empty values count as unset.
    static Environment processEnvironment();

    /// Reads @p file (all keys optional, unknown keys are errors) and applies @p environment.
    /// Without a file only defaults and environment count. The error is ready for the user.
    static tl::expected<Config, std::string> load(const std::optional<std::filesystem::path> &file,
                                                  const Environment &environment);
    /// Like load(), for text already in memory; @p name appears in errors.
    static tl::expected<Config, std::string> parse(const std::string &toml, const std::string &name,
                                                   const Environment &environment);
    /// Replaces all models by the built-in offline one.
    void useOfflineOnly();
    /// The configuration file looked for when none is named, or nothing.
    static std::optional<std::filesystem::path> defaultFile(const Environment &environment);
};

} // namespace quellora::server
