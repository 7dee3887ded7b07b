#include "config/Config.h"

#include "base/Text.h"
#include "config/TomlReader.h"
#include "providers/UpstreamSettings.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

namespace quellora::server {
namespace {

constexpr std::int64_t year = 365LL * 24 * 3600;
constexpr std::size_t shortestMetricsToken = 16;
constexpr std::size_t mostFallbacks = 4;
constexpr std::int64_t mebibyte = 1024LL * 1024;

void readServer(TomlReader reader, ServerSettings &server)
{
    reader.read("host", server.host);
    reader.read("port", server.port, 0, 65535);
    reader.read("allow_remote", server.allowRemote);
    reader.read("allowed_hosts", server.allowedHosts);
    std::vector<std::string> proxies;
    reader.read("trusted_proxies", proxies);
    for (const std::string &proxy : proxies) {
        if (!server.trustedProxies.add(proxy))
            reader.fail("trusted_proxies", "\"" + proxy + "\" is no address or network");
    }
    reader.read("one_click_sign_in", server.oneClickSignIn);
    reader.read("threads", server.threads, 4, 512);
    reader.read("metrics_token", server.metricsToken);
    if (!server.metricsToken.empty() && server.metricsToken.size() < shortestMetricsToken)
        reader.fail("metrics_token", "must have at least 16 characters");
    reader.finish();
}

void readLimits(TomlReader reader, LimitSettings &limits)
{
    reader.read("queries_per_minute", limits.queriesPerMinute, 1, 100000);
    reader.read("concurrent_queries", limits.concurrentQueries, 1, 64);
    reader.read("running_answers", limits.runningAnswers, 1, 100000);
    reader.read("retries", limits.retries, 0, 5);
    reader.read("connections", limits.connections, 16, 1000000);
    reader.read("connections_per_address", limits.connectionsPerPeer, 4, 1000000);
    reader.read("login_failures", limits.loginFailures, 1, 100000);
    reader.readSeconds("login_window_seconds", limits.loginWindow, 1, 24 * 3600);
    reader.read("auth_requests_per_minute", limits.authRequestsPerMinute, 1, 1000000);
    reader.read("query_bytes", limits.queryBytes, 1024, 256 * mebibyte);
    reader.read("log_bytes", limits.logBytes, 1024, 256 * mebibyte);
    reader.read("kept_logs", limits.keptLogs, 1, 10000);
    reader.finish();
}

void readAdminMessage(TomlReader reader, ServiceSettings &service)
{
    if (!reader.present())
        return;
    AdminMessage message;
    std::int64_t minutes = -1;
    reader.read("id", message.id);
    reader.read("type", message.type);
    reader.read("header_text", message.headerText);
    reader.read("body_markdown", message.bodyMarkdown);
    reader.read("action_label", message.actionLabel);
    reader.read("action_url", message.actionUrl);
    reader.read("force_update_in_minutes", minutes, 0, 60 * 24 * 365);
    reader.finish();
    if (message.id.empty())
        reader.fail("id", "is required: the app tells messages apart by it");
    if (message.type != "BLOCKING" && message.type != "INFORMATIONAL")
        reader.fail("type", "must be \"BLOCKING\" or \"INFORMATIONAL\"");
    if (minutes >= 0)
        message.forceUpdateInMinutes = minutes;
    service.adminMessage = message;
}

void readService(TomlReader reader, ServiceSettings &service)
{
    reader.read("default_prompt", service.defaultPrompt);
    reader.read("minimum_app_version", service.minimumAppVersion);
    reader.read("heartbeat_interval_seconds", service.heartbeatIntervalSeconds, 1, year);
    reader.read("default_token_cap", service.defaultTokenCap, 0, 1000000000000LL);
    reader.read("default_plan", service.defaultPlan);
    reader.read("request_logs", service.requestLogs);
    reader.read("debug_logging", service.debugLogging);
    readAdminMessage(reader.table("admin_message"), service);
    reader.finish();
}

void readOidc(TomlReader reader, OidcSettings &oidc)
{
    std::string secretFile;
    reader.read("issuer", oidc.issuer);
    reader.read("client_id", oidc.clientId);
    reader.read("client_secret", oidc.clientSecret);
    reader.read("client_secret_file", secretFile);
    reader.read("allowed_domains", oidc.allowedDomains);
    reader.read("name", oidc.name);
    reader.finish();
    if (!secretFile.empty()) {
        std::ifstream file(secretFile);
        if (!std::getline(file, oidc.clientSecret) || trimmed(oidc.clientSecret).empty())
            reader.fail("client_secret_file", "cannot be read or is empty");
        oidc.clientSecret = trimmed(oidc.clientSecret);
    }
    if (!oidc.isOn())
        return;
    if (!isTrustworthyUrl(oidc.issuer))
        reader.fail("issuer", "must begin with https://");
    if (oidc.clientId.empty())
        reader.fail("client_id", "is required");
}

void readLogFormat(TomlReader &root, Log::Format &format)
{
    std::string name = "text";
    root.read("log_format", name);
    if (name == "json")
        format = Log::Format::Json;
    else if (name != "text")
        root.fail("log_format", "must be \"text\" or \"json\"");
}

void readTiming(TomlReader reader, TimingSettings &timing)
{
    reader.readSeconds("keep_alive_seconds", timing.keepAlive, 1, 10);
    reader.readSeconds("connect_seconds", timing.connect, 1, 60);
    reader.readSeconds("tls_seconds", timing.tls, 1, 60);
    reader.readSeconds("first_byte_seconds", timing.firstByte, 1, 3600);
    reader.readSeconds("stall_seconds", timing.stall, 1, 3600);
    reader.readSeconds("answer_seconds", timing.answer, 1, 24 * 3600);
    if (const auto retry = reader.integer("retry_milliseconds", 1, 60000))
        timing.retry = std::chrono::milliseconds(*retry);
    reader.readSeconds("longest_retry_seconds", timing.longestRetry, 0, 60);
    reader.readSeconds("idle_seconds", timing.idle, 1, 3600);
    reader.readSeconds("stop_grace_seconds", timing.stopGrace, 0, 3600);
    if (timing.answer < timing.firstByte || timing.answer < timing.stall)
        reader.fail("answer_seconds", "must not be less than first_byte_seconds and stall_seconds");
    reader.finish();
}

void readPostgres(TomlReader reader, PostgresSettings &postgres)
{
    reader.read("direct_url", postgres.directUrl);
    reader.read("connections", postgres.connections, 1, 200);
    reader.readSeconds("connect_seconds", postgres.connect, 2, 60);
    reader.readSeconds("statement_seconds", postgres.statement, 1, 600);
    reader.finish();
}

void readRetention(TomlReader reader, RetentionSettings &retention)
{
    reader.read("telemetry_days", retention.telemetryDays, 0, 36500);
    reader.read("log_days", retention.logDays, 0, 36500);
    reader.read("answer_days", retention.answerDays, 1, 36500);
    reader.finish();
}

/// "a", "b" or "c": the names that [[models]] accepts.
std::string quotedNames(const std::vector<ConfiguredProvider> &providers)
{
    std::string text;
    for (std::size_t i = 0; i < providers.size(); ++i) {
        if (i > 0)
            text += i + 1 < providers.size() ? ", " : " or ";
        text += '"' + providers[i].name + '"';
    }
    return text;
}

const ConfiguredProvider *providerNamed(const Config &config, const std::string &name)
{
    const auto found = std::find_if(config.providers.begin(), config.providers.end(),
                                    [&](const auto &provider) { return provider.name == name; });
    return found == config.providers.end() ? nullptr : &*found;
}

const ModelSettings *modelNamed(const Config &config, const std::string &id)
{
    const auto found = std::find_if(config.models.begin(), config.models.end(),
                                    [&](const auto &model) { return model.id == id; });
    return found == config.models.end() ? nullptr : &*found;
}

/// Adds a model with its empty fields filled in.
void addModel(Config &config, ModelSettings model)
{
    if (const ConfiguredProvider *provider = providerNamed(config, model.provider))
        model.destination = provider->destination;
    if (model.upstream.empty())
        model.upstream = model.id;
    if (model.displayName.empty())
        model.displayName = model.id;
    config.models.push_back(std::move(model));
}

void addModelsOf(Config &config, const ConfiguredProvider &provider)
{
    for (ModelSettings model : provider.models) {
        model.provider = provider.name;
        addModel(config, std::move(model));
    }
}

void useOnly(Config &config, const ConfiguredProvider &provider)
{
    config.models.clear();
    addModelsOf(config, provider);
    config.defaultModel = config.models.front().id;
    config.takesConnections = false;
}

void readModels(TomlReader &root, Config &config)
{
    std::set<std::string> seen;
    for (TomlReader &reader : root.tables("models")) {
        ModelSettings model;
        reader.read("id", model.id);
        reader.read("provider", model.provider);
        reader.read("upstream", model.upstream);
        reader.read("display_name", model.displayName);
        reader.read("descriptor", model.descriptor);
        reader.read("fallback", model.fallback);
        if (model.fallback.size() > mostFallbacks)
            reader.fail("fallback",
                        "must name at most " + std::to_string(mostFallbacks) + " models");
        reader.finish();
        if (model.id.empty() || !seen.insert(model.id).second)
            reader.fail("id", "is required and must be unique");
        if (!providerNamed(config, model.provider))
            reader.fail("provider", "must be " + quotedNames(config.providers));
        addModel(config, std::move(model));
    }
}

/// What is wrong with the models that may take over; empty when nothing is. The lists are not
/// followed from model to model, so that two models may stand in for each other.
std::string fallbackProblem(const Config &config)
{
    for (const ModelSettings &model : config.models) {
        std::set<std::string> seen = {model.id};
        for (const std::string &next : model.fallback) {
            if (!modelNamed(config, next))
                return "models: \"" + model.id + "\" falls back to \"" + next +
                       "\", which is not one of the models";
            if (!seen.insert(next).second)
                return "models: \"" + model.id + "\" falls back to \"" + next + "\" in a circle";
        }
    }
    return "";
}

/// Lets the list of models say where a picture may go besides its model's own destination.
void describeFallbacks(Config &config)
{
    for (ModelSettings &model : config.models) {
        std::set<std::string> named = {model.destination};
        for (const std::string &next : model.fallback) {
            const std::string &host = modelNamed(config, next)->destination;
            if (!named.insert(host).second)
                continue;
            model.descriptor += model.descriptor.empty() ? "Falls back to " : ", falls back to ";
            model.descriptor += isLoopbackHost(host) ? "the server itself" : host;
        }
    }
}

/// Fills in what file and environment left open, and rejects what cannot work.
void complete(Config &config, std::string &error)
{
    const auto fail = [&error](const std::string &text) {
        if (error.empty())
            error = text;
    };
    if (!config.server.isHostPermitted())
        fail("server.host: \"" + config.server.host +
             "\" can be reached from other machines; set server.allow_remote = true to mean it");

    for (const ConfiguredProvider &provider : config.providers) {
        if (provider.isExclusive) {
            useOnly(config, provider);
            return;
        }
    }
    for (const ConfiguredProvider &provider : config.providers) {
        const bool isListed =
            std::any_of(config.models.begin(), config.models.end(),
                        [&](const auto &model) { return model.provider == provider.name; });
        if (provider.missing.empty() &&
            (config.models.empty() || (provider.offersAdditionally && !isListed)))
            addModelsOf(config, provider);
    }
    for (const ModelSettings &model : config.models) {
        const ConfiguredProvider *provider = providerNamed(config, model.provider);
        if (provider && !provider->missing.empty())
            fail("models: \"" + model.id + "\" needs " + provider->missing);
    }
    if (config.defaultModel.empty())
        config.defaultModel = config.models.front().id;
    if (!modelNamed(config, config.defaultModel))
        fail("default_model: \"" + config.defaultModel + "\" is not one of the models");
    if (const std::string problem = fallbackProblem(config); !problem.empty())
        fail(problem);
    else
        describeFallbacks(config);
}

} // namespace

bool isTrustworthyUrl(const std::string &url)
{
    return isHttpUrl(url) && (url.rfind("https://", 0) == 0 || isLoopbackHost(hostOfUrl(url)));
}

bool ServerSettings::isHostPermitted() const
{
    return allowRemote || host == "127.0.0.1" || host == "localhost" || host == "::1";
}

ServiceSettings::ServiceSettings()
    : defaultPrompt("You are a silent vantiro assistant.\n"
                    "The user will send you a screenshot of content.\n\n"
                    "Respond in this EXACT format, very concise:\n\n"
                    "## Approach\n"
                    "- [3 bullet points max, one line each, what to do step by step]\n\n"
                    "## Solution\n"
                    "- [3 bullet possible solutions or ideas]\n"
                    "- Output the full code solution. \n"
                    "    Display in the desired language as a md code block so it's easy to "
                    "read.\n\n"
                    "Be extremely terse. The user needs to read this at a glance under time "
                    "pressure.\n"
                    "Do not add explanations outside this format.")
{}

bool Config::useDatabase(const std::string &address)
{
    const std::string file = "sqlite:";
    if (address.rfind(file, 0) == 0 && address.size() > file.size()) {
        dataFile = address.substr(file.size());
        postgres.url.clear();
        return true;
    }
    if (address.rfind("postgresql://", 0) != 0 && address.rfind("postgres://", 0) != 0)
        return false;
    postgres.url = address;
    return true;
}

std::filesystem::path Config::connectionFile() const
{
    return dataFile.parent_path() / "connections.json";
}

bool Config::hasOnlyFallback() const
{
    return std::all_of(models.begin(), models.end(), [this](const ModelSettings &model) {
        return model.provider == providers.back().name;
    });
}

void Config::useFallbackProvider()
{
    useOnly(*this, providers.back());
}

std::string Config::setupHint(const std::string &open, const std::string &close) const
{
    std::string text;
    for (const ConfiguredProvider &provider : providers) {
        if (provider.setupVariable.empty())
            continue;
        text += (text.empty() ? "" : ", or ") + open;
        text += provider.setupVariable + close + provider.setupRemark;
    }
    return text;
}

tl::expected<Config, std::string> Config::parse(const std::string &toml, const std::string &name,
                                                const Environment &environment,
                                                const std::vector<Provider> &providers)
{
    toml::table document;
    try {
        document = toml::parse(toml);
    } catch (const toml::parse_error &problem) {
        return tl::make_unexpected(name + ": line " + std::to_string(problem.source().begin.line) +
                                   ": " + std::string(problem.description()));
    }

    Config config;
    std::string error;
    std::string dataFile;
    std::int64_t sessionDays = 30;
    TomlReader root(&document, "", error);
    std::string database;
    root.read("data_file", dataFile);
    root.read("database", database);
    readPostgres(root.table("postgresql"), config.postgres);
    readRetention(root.table("retention"), config.retention);
    root.read("default_model", config.defaultModel);
    readLogFormat(root, config.logFormat);
    readServer(root.table("server"), config.server);
    readLimits(root.table("limits"), config.limits);
    readService(root.table("service"), config.service);
    readTiming(root.table("timing"), config.timing);
    for (const Provider &provider : providers) {
        TomlReader table = root.table(provider.name);
        config.providers.push_back(provider.configure(table, environment));
        config.providers.back().name = provider.name;
        table.finish();
    }
    readOidc(root.table("oidc"), config.oidc);
    TomlReader security = root.table("security");
    security.read("session_days", sessionDays, 1, 3650);
    security.readSeconds("browser_sign_in_seconds", config.security.handoverLifetime, 10, 3600);
    security.finish();
    readModels(root, config);
    root.finish();

    config.security.sessionLifetime = std::chrono::hours(24 * sessionDays);
    if (const auto named = environment("QUELLORA_BACKEND_DATABASE")) {
        database = *named;
    } else if (const auto file = environment("QUELLORA_BACKEND_DATA")) {
        dataFile = *file;
        database.clear();
    }
    if (!dataFile.empty()) {
        config.dataFile = dataFile;
    } else if (const auto data = environment("XDG_DATA_HOME")) {
        config.dataFile = std::filesystem::path(*data) / "Quellora" / "backend.sqlite";
    } else if (const auto home = environment("HOME")) {
        config.dataFile =
            std::filesystem::path(*home) / ".local" / "share" / "Quellora" / "backend.sqlite";
    }
    // The address may contain a password, so that no message repeats it.
    if (!database.empty() && !config.useDatabase(database) && error.empty())
        error = "database: must be \"sqlite:PATH\" or \"postgresql://…\"";
    complete(config, error);
    if (!error.empty())
        return tl::make_unexpected(name + ": " + error);
    return config;
}

tl::expected<Config, std::string> Config::load(const std::optional<std::filesystem::path> &file,
                                               const Environment &environment,
                                               const std::vector<Provider> &providers)
{
    if (!file)
        return parse("", "configuration", environment, providers);
    std::ifstream input(*file, std::ios::binary);
    std::ostringstream text;
    text << input.rdbuf();
    if (!input)
        return tl::make_unexpected("cannot read " + file->string());
    return parse(text.str(), file->string(), environment, providers);
}

std::optional<std::filesystem::path> Config::defaultFile(const Environment &environment)
{
    if (const auto named = environment("QUELLORA_BACKEND_CONFIG"))
        return std::filesystem::path(*named);
    std::filesystem::path directory;
    if (const auto configHome = environment("XDG_CONFIG_HOME"))
        directory = *configHome;
    else if (const auto home = environment("HOME"))
        directory = std::filesystem::path(*home) / ".config";
    const auto candidate = directory / "Quellora" / "backend.toml";
    std::error_code ignored;
    if (!directory.empty() && std::filesystem::is_regular_file(candidate, ignored))
        return candidate;
    return std::nullopt;
}

} // namespace quellora::server
