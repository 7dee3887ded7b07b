#pragma once

#include "base/Environment.h"
#include "base/Log.h"
#include "base/Secrets.h"
#include "config/OidcSettings.h"
#include "config/TrustedProxies.h"
#include "providers/Provider.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>
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
    /// Proxies whose word about the client's address is taken.
    TrustedProxies trustedProxies;
    /// Host header names accepted besides the loopback names and `host`.
    std::vector<std::string> allowedHosts;
    /// Whether /login offers sign-in without a password to the user running the server.
    bool oneClickSignIn = true;
    /// Worker threads for what may block: the data file, pages and the like. Running answers and
    /// idle connections occupy none.
    std::size_t threads = 16;
    /// Admits monitoring from other machines to /metrics; empty admits this machine only.
    std::string metricsToken;

    /// Whether the server may listen on its host: a loopback address, unless allowRemote is set.
    bool isHostPermitted() const;
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
    /// Running answers of all accounts together.
    int runningAnswers = 1000;
    /// How often a model that fails is asked again for the same answer.
    int retries = 2;
    /// Open connections, those between two requests included.
    std::size_t connections = 12000;
    /// Of these, those from one address that is neither a trusted proxy nor this machine.
    std::size_t connectionsPerPeer = 1000;
    int loginFailures = 10;
    std::chrono::seconds loginWindow = std::chrono::minutes(5);
    int authRequestsPerMinute = 240;
    std::size_t queryBytes = 24U * 1024U * 1024U;
    std::size_t logBytes = 64U * 1024U * 1024U;
    int keptLogs = 10;
};

/// A message from the operator, shown by the app above the prompt box.
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

/// The part of the configuration record that is the same for all accounts.
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

/// Time limits of answers.
struct TimingSettings
{
    /// Longest time without a byte to the client. Until it has passed, a failing model still
    /// causes an HTTP error; after it the stream has begun.
    std::chrono::milliseconds keepAlive = std::chrono::seconds(8);
    /// Longest time for finding a provider's address and connecting to it.
    std::chrono::milliseconds connect = std::chrono::seconds(5);
    /// Longest time for the encryption to be agreed on afterwards.
    std::chrono::milliseconds tls = std::chrono::seconds(5);
    /// Longest time from a question that has been sent to the first byte of the reply.
    std::chrono::milliseconds firstByte = std::chrono::seconds(180);
    /// Longest silence of a model between two bytes before its answer fails.
    std::chrono::milliseconds stall = std::chrono::seconds(180);
    /// Longest time from a question to the end of its answer, all attempts included.
    std::chrono::milliseconds answer = std::chrono::hours(1);
    /// Upper bound of the random wait before a model is asked again; doubles each time.
    std::chrono::milliseconds retry = std::chrono::milliseconds(500);
    /// Longest wait before that. A provider that asks for more is not asked again.
    std::chrono::milliseconds longestRetry = std::chrono::seconds(5);
    /// How long a connection without a request is kept.
    std::chrono::milliseconds idle = std::chrono::seconds(75);
    /// How long a shutdown lets running answers go on.
    std::chrono::milliseconds stopGrace = std::chrono::seconds(3);
};

/// How many days things are kept; 0 keeps them.
struct RetentionSettings
{
    int telemetryDays = 90;
    int logDays = 90;
    /// Ended answers, by which one that is counted twice is recognised.
    int answerDays = 35;
};

/// A PostgreSQL server that several instances share as their store.
struct PostgresSettings
{
    /// "postgresql://…"; may lead to a pooler that assigns a server per transaction. Empty: the
    /// store is the SQLite file.
    std::string url;
    /// Leads past the pooler, for the one connection that listens; empty: the same as url.
    std::string directUrl;
    int connections = 8;
    std::chrono::seconds connect{5};
    /// Longest duration of a statement, and of a silence within a transaction.
    std::chrono::seconds statement{10};
};

/// Everything that can be configured: built-in defaults, overridden by the file, overridden by the
/// environment.
struct Config
{
    ServerSettings server;
    SecuritySettings security;
    LimitSettings limits;
    ServiceSettings service;
    TimingSettings timing;
    OidcSettings oidc;
    Log::Format logFormat = Log::Format::Text;
    /// All providers, including those that miss settings.
    std::vector<ConfiguredProvider> providers;
    /// Never empty after parsing; the first is the default unless defaultModel says otherwise.
    std::vector<ModelSettings> models;
    std::string defaultModel;
    /// Whether models connected on the account page are offered; not when only the fallback may be.
    bool takesConnections = true;
    /// The SQLite file. What belongs to this machine alone stays beside it with any store.
    std::filesystem::path dataFile;
    PostgresSettings postgres;
    RetentionSettings retention;

    /// Reads @p file (all keys optional, unknown keys are errors) and applies @p environment.
    /// Without a file only defaults and environment count. The error is ready for the user.
    static tl::expected<Config, std::string>
    load(const std::optional<std::filesystem::path> &file, const Environment &environment,
         const std::vector<Provider> &providers = builtInProviders());
    /// Like load(), for text already in memory; @p name appears in errors.
    static tl::expected<Config, std::string>
    parse(const std::string &toml, const std::string &name, const Environment &environment,
          const std::vector<Provider> &providers = builtInProviders());
    /// Takes "sqlite:PATH" or "postgresql://…" as the store. False when it is neither.
    bool useDatabase(const std::string &address);
    /// Whether no model but those of the provider that needs no configuration is configured.
    bool hasOnlyFallback() const;
    /// The file with the models connected on the account page, beside the data file.
    std::filesystem::path connectionFile() const;
    /// Offers only the models of the provider that needs no configuration.
    void useFallbackProvider();
    /// The settings that switch a provider on, as a phrase such as "A, or B for a local server".
    /// The variables stand between @p open and @p close.
    std::string setupHint(const std::string &open, const std::string &close) const;
    /// The configuration file used when none is named, or nothing.
    static std::optional<std::filesystem::path> defaultFile(const Environment &environment);
};

} // namespace quellora::server
