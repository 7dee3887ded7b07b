#include "config/Config.h"

#include "config/TomlReader.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

namespace quellora::server {
namespace {

constexpr std::int64_t year = 365LL * 24 * 3600;
constexpr std::int64_t mebibyte = 1024LL * 1024;

void readServer(TomlReader reader, ServerSettings &server)
{
    reader.read("host", server.host);
    reader.read("port", server.port, 0, 65535);
    reader.read("allow_remote", server.allowRemote);
    reader.read("allowed_hosts", server.allowedHosts);
    reader.read("one_click_sign_in", server.oneClickSignIn);
    reader.read("threads", server.threads, 8, 512);
    reader.finish();
}

void readLimits(TomlReader reader, LimitSettings &limits)
{
    reader.read("queries_per_minute", limits.queriesPerMinute, 1, 100000);
    reader.read("concurrent_queries", limits.concurrentQueries, 1, 64);
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

void readTiming(TomlReader reader, TimingSettings &timing)
{
    reader.readSeconds("keep_alive_seconds", timing.keepAlive, 1, 10);
    reader.readSeconds("connect_seconds", timing.connect, 1, 60);
    reader.readSeconds("stall_seconds", timing.stall, 1, 3600);
    reader.readSeconds("stop_grace_seconds", timing.stopGrace, 0, 60);
    reader.finish();
}

void readOffline(TomlReader reader, OfflineSettings &offline)
{
    std::int64_t budget = offline.budget.count();
    reader.read("force", offline.force);
    reader.read("languages", offline.languages);
    reader.read("data_directory", offline.dataDirectory);
    reader.read("budget_milliseconds", budget, 100, 600000);
    reader.finish();
    offline.budget = std::chrono::milliseconds(budget);
}

std::string firstLine(const std::string &path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    line.erase(std::find_if(line.begin(), line.end(), [](char c) { return c == '\r'; }),
               line.end());
    return line;
}

/// @p model receives the convenience key `model`, which saves writing [[models]].
void readUpstream(TomlReader reader, UpstreamSettings &upstream, std::string &model)
{
    std::string keyFile;
    reader.read("base_url", upstream.baseUrl);
    reader.read("api_key", upstream.apiKey);
    reader.read("api_key_file", keyFile);
    reader.read("model", model);
    reader.read("max_output_tokens", upstream.maxOutputTokens, 1, 1000000);
    reader.finish();
    if (!keyFile.empty()) {
        upstream.apiKey = firstLine(keyFile);
        if (upstream.apiKey.empty())
            reader.fail("api_key_file", "cannot read a key from " + keyFile);
    }
}

void readModels(TomlReader &root, Config &config)
{
    std::set<std::string> seen;
    for (TomlReader &reader : root.tables("models")) {
        ModelSettings model;
        std::string provider;
        reader.read("id", model.id);
        reader.read("provider", provider);
        reader.read("upstream", model.upstream);
        reader.read("display_name", model.displayName);
        reader.read("descriptor", model.descriptor);
        reader.finish();
        if (model.id.empty() || !seen.insert(model.id).second)
            reader.fail("id", "is required and must be unique");
        if (provider == "anthropic")
            model.provider = Provider::Anthropic;
        else if (provider == "openai")
            model.provider = Provider::OpenAi;
        else if (provider == "offline")
            model.provider = Provider::Offline;
        else
            reader.fail("provider", "must be \"anthropic\", \"openai\" or \"offline\"");
        if (model.upstream.empty())
            model.upstream = model.id;
        if (model.displayName.empty())
            model.displayName = model.id;
        config.models.push_back(std::move(model));
    }
}

ModelSettings offlineModel()
{
    return {"offline", "Offline reader", "Reads the screenshot's text on this machine",
            Provider::Offline, "offline"};
}

bool validBaseUrl(const std::string &url)
{
    const auto scheme = url.find("://");
    if (url.rfind("http://", 0) != 0 && url.rfind("https://", 0) != 0)
        return false;
    return url.size() > scheme + 3 && url.find_first_of(" \t\r\n@?#") == std::string::npos;
}

/// Fills in what file and environment left open, and refuses what cannot work.
void complete(Config &config, const std::string &anthropicModel, const std::string &openAiModel,
              std::string &error)
{
    const auto fail = [&error](const std::string &text) {
        if (error.empty())
            error = text;
    };
    if (config.anthropic.baseUrl.empty())
        config.anthropic.baseUrl = "https://api.anthropic.com";
    config.anthropic.enabled = !config.anthropic.apiKey.empty();
    // A key alone does not choose an OpenAI-compatible server: screenshots only go where the
    // operator has said.
    config.openAi.enabled = !config.openAi.baseUrl.empty();
    if (!validBaseUrl(config.anthropic.baseUrl))
        fail("anthropic.base_url: must be an http or https address");
    if (config.openAi.enabled && !validBaseUrl(config.openAi.baseUrl))
        fail("openai.base_url: must be an http or https address");

    const bool loopback = config.server.host == "127.0.0.1" || config.server.host == "localhost" ||
                          config.server.host == "::1";
    if (!loopback && !config.server.allowRemote)
        fail("server.host: \"" + config.server.host +
             "\" can be reached from other machines; set server.allow_remote = true to mean it");

    if (config.offline.force) {
        config.useOfflineOnly();
        return;
    }
    if (config.models.empty() && config.anthropic.enabled) {
        if (anthropicModel.empty()) {
            config.models = {{"claude-sonnet-4-5", "Claude Sonnet 4.5", "Balanced",
                              Provider::Anthropic, "claude-sonnet-4-5"},
                             {"claude-opus-4-5", "Claude Opus 4.5", "Most capable",
                              Provider::Anthropic, "claude-opus-4-5"},
                             {"claude-haiku-4-5", "Claude Haiku 4.5", "Fastest",
                              Provider::Anthropic, "claude-haiku-4-5"}};
        } else {
            config.models.push_back(
                {anthropicModel, anthropicModel, "Anthropic", Provider::Anthropic, anthropicModel});
        }
    }
    const bool listed = std::any_of(config.models.begin(), config.models.end(),
                                    [](const auto &m) { return m.provider == Provider::OpenAi; });
    if (config.openAi.enabled && !listed && (config.models.empty() || !openAiModel.empty())) {
        const std::string name = openAiModel.empty() ? "default" : openAiModel;
        config.models.push_back({name, name, "OpenAI-compatible server", Provider::OpenAi, name});
    }
    for (const ModelSettings &model : config.models) {
        if (model.provider == Provider::Anthropic && !config.anthropic.enabled)
            fail("models: \"" + model.id + "\" needs anthropic.api_key or ANTHROPIC_API_KEY");
        if (model.provider == Provider::OpenAi && !config.openAi.enabled)
            fail("models: \"" + model.id + "\" needs openai.base_url or OPENAI_BASE_URL");
    }
    if (config.models.empty())
        config.models = {offlineModel()};
    if (config.defaultModel.empty())
        config.defaultModel = config.models.front().id;
    if (std::none_of(config.models.begin(), config.models.end(),
                     [&](const auto &m) { return m.id == config.defaultModel; }))
        fail("default_model: \"" + config.defaultModel + "\" is not one of the models");
}

} // namespace

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

Config::Environment Config::processEnvironment()
{
    return [](const char *name) -> std::optional<std::string> {
        const char *value = std::getenv(name);
        if (!value || !*value)
            return std::nullopt;
        return std::string(value);
    };
}

void Config::useOfflineOnly()
{
    models = {offlineModel()};
    defaultModel = models.front().id;
}

tl::expected<Config, std::string> Config::parse(const std::string &toml, const std::string &name,
                                                const Environment &environment)
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
    std::string anthropicModel;
    std::string openAiModel;
    std::int64_t sessionDays = 30;
    TomlReader root(&document, "", error);
    root.read("data_file", dataFile);
    root.read("default_model", config.defaultModel);
    readServer(root.table("server"), config.server);
    readLimits(root.table("limits"), config.limits);
    readService(root.table("service"), config.service);
    readTiming(root.table("timing"), config.timing);
    readOffline(root.table("offline"), config.offline);
    readUpstream(root.table("anthropic"), config.anthropic, anthropicModel);
    readUpstream(root.table("openai"), config.openAi, openAiModel);
    TomlReader security = root.table("security");
    security.read("session_days", sessionDays, 1, 3650);
    security.readSeconds("browser_sign_in_seconds", config.security.handoverLifetime, 10, 3600);
    security.finish();
    readModels(root, config);
    root.finish();

    config.security.sessionLifetime = std::chrono::hours(24 * sessionDays);
    const auto take = [&environment](const char *variable, std::string &value) {
        if (const auto found = environment(variable))
            value = *found;
    };
    take("ANTHROPIC_API_KEY", config.anthropic.apiKey);
    take("ANTHROPIC_BASE_URL", config.anthropic.baseUrl);
    take("ANTHROPIC_MODEL", anthropicModel);
    take("OPENAI_API_KEY", config.openAi.apiKey);
    take("OPENAI_BASE_URL", config.openAi.baseUrl);
    take("OPENAI_MODEL", openAiModel);
    take("QUELLORA_BACKEND_DATA", dataFile);

    if (!dataFile.empty()) {
        config.dataFile = dataFile;
    } else if (const auto data = environment("XDG_DATA_HOME")) {
        config.dataFile = std::filesystem::path(*data) / "Quellora" / "backend.sqlite";
    } else if (const auto home = environment("HOME")) {
        config.dataFile =
            std::filesystem::path(*home) / ".local" / "share" / "Quellora" / "backend.sqlite";
    }
    complete(config, anthropicModel, openAiModel, error);
    if (!error.empty())
        return tl::make_unexpected(name + ": " + error);
    return config;
}

tl::expected<Config, std::string> Config::load(const std::optional<std::filesystem::path> &file,
                                               const Environment &environment)
{
    if (!file)
        return parse("", "configuration", environment);
    std::ifstream input(*file, std::ios::binary);
    std::ostringstream text;
    text << input.rdbuf();
    if (!input)
        return tl::make_unexpected("cannot read " + file->string());
    return parse(text.str(), file->string(), environment);
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
