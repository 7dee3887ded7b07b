#include "ServerKit.h"

#include <fstream>

namespace quellora::server {
namespace {

tl::expected<Config, std::string> parse(const std::string &toml,
                                        std::map<std::string, std::string> variables = {})
{
    return Config::parse(toml, "test.toml", environmentOf(std::move(variables)));
}

TEST(Config, DefaultsToTheOfflineModelOnLoopback)
{
    const auto config = parse("", {{"HOME", "/home/ann"}});
    ASSERT_TRUE(config) << config.error();
    EXPECT_EQ(config->server.host, "127.0.0.1");
    ASSERT_EQ(config->models.size(), 1U);
    EXPECT_EQ(config->models.front().provider, "offline");
    EXPECT_EQ(config->defaultModel, config->models.front().id);
    EXPECT_EQ(config->dataFile, "/home/ann/.local/share/Quellora/backend.sqlite");
    EXPECT_EQ(config->security.sessionLifetime, std::chrono::hours(24 * 30));
    EXPECT_FALSE(config->service.defaultPrompt.empty());
    EXPECT_LE(config->timing.keepAlive, std::chrono::seconds(10));
}

TEST(Config, DataFileIsChosenByVariableFileAndDataDirectory)
{
    EXPECT_EQ(parse("", {{"HOME", "/h"}, {"XDG_DATA_HOME", "/d"}})->dataFile,
              "/d/Quellora/backend.sqlite");
    EXPECT_EQ(parse("data_file = '/x.db'", {{"XDG_DATA_HOME", "/d"}})->dataFile, "/x.db");
    EXPECT_EQ(parse("data_file = '/x.db'", {{"QUELLORA_BACKEND_DATA", "/y.db"}})->dataFile,
              "/y.db");
}

TEST(Config, AnthropicKeyInTheEnvironmentOffersItsModels)
{
    const auto config = parse("", {{"ANTHROPIC_API_KEY", "k"}});
    ASSERT_TRUE(config) << config.error();
    EXPECT_EQ(config->models.size(), 3U);
    EXPECT_EQ(config->models.front().provider, "anthropic");
    EXPECT_EQ(config->models.front().upstream, "claude-sonnet-4-5");
    EXPECT_EQ(config->providers.front().summary, "https://api.anthropic.com, key set");
    const auto one = parse("", {{"ANTHROPIC_API_KEY", "k"}, {"ANTHROPIC_MODEL", "m"}});
    ASSERT_EQ(one->models.size(), 1U);
    EXPECT_EQ(one->defaultModel, "m");
}

TEST(Config, OpenAiKeyAloneDoesNotEnableAServer)
{
    const auto config = parse("", {{"OPENAI_API_KEY", "k"}});
    ASSERT_TRUE(config) << config.error();
    EXPECT_EQ(config->models.front().provider, "offline");
    const auto local =
        parse("", {{"OPENAI_BASE_URL", "http://127.0.0.1:11434/v1"}, {"OPENAI_MODEL", "qwen"}});
    ASSERT_EQ(local->models.size(), 1U);
    EXPECT_EQ(local->models.front().provider, "openai");
    EXPECT_EQ(local->models.front().upstream, "qwen");
}

TEST(Config, NamedOpenAiModelIsOfferedBesideOtherModels)
{
    const std::string openAi = "[openai]\nbase_url = 'http://127.0.0.1:8080'\n";
    const std::string listed = "[[models]]\nid = 'a'\nprovider = 'anthropic'\n";
    const auto ids = [](const std::string &toml) {
        std::vector<std::string> list;
        const auto config = parse(toml, {{"ANTHROPIC_API_KEY", "k"}});
        for (const ModelSettings &model : config->models)
            list.push_back(model.id);
        return list;
    };
    EXPECT_EQ(ids(openAi + listed), std::vector<std::string>({"a"}));
    EXPECT_EQ(ids(openAi + "model = 'q'\n" + listed), std::vector<std::string>({"a", "q"}));
    EXPECT_EQ(ids(openAi + "model = 'q'\n" + listed + "[[models]]\nid = 'b'\nprovider = 'openai'"),
              std::vector<std::string>({"a", "b"}));
}

TEST(Config, ModelsAndServiceAreRead)
{
    const auto config = parse(R"(
default_model = "b"
[server]
port = 0
[security]
session_days = 2
[service]
default_prompt = "p"
request_logs = true
debug_logging = false
heartbeat_interval_seconds = 60
[service.admin_message]
id = "m"
type = "BLOCKING"
header_text = "h"
body_markdown = "b"
force_update_in_minutes = 5
[anthropic]
api_key = "k"
[openai]
base_url = "http://127.0.0.1:8080"
[[models]]
id = "a"
provider = "anthropic"
upstream = "claude-x"
display_name = "A"
descriptor = "first"
[[models]]
id = "b"
provider = "openai"
)");
    ASSERT_TRUE(config) << config.error();
    EXPECT_EQ(config->defaultModel, "b");
    ASSERT_EQ(config->models.size(), 2U);
    EXPECT_EQ(config->models[0].upstream, "claude-x");
    EXPECT_EQ(config->models[1].upstream, "b");
    EXPECT_EQ(config->models[1].displayName, "b");
    EXPECT_EQ(config->security.sessionLifetime, std::chrono::hours(48));
    EXPECT_EQ(config->service.requestLogs, true);
    EXPECT_EQ(config->service.debugLogging, false);
    ASSERT_TRUE(config->service.adminMessage);
    EXPECT_EQ(config->service.adminMessage->forceUpdateInMinutes, 5);
    EXPECT_FALSE(config->service.adminMessage->actionUrl);
}

TEST(Config, OfflineForceIgnoresOtherProviders)
{
    const auto config = parse("[offline]\nforce = true", {{"ANTHROPIC_API_KEY", "k"}});
    EXPECT_EQ(config->defaultModel, "offline");
}

struct BadConfig
{
    const char *toml;
    const char *says;
};

class RefusedConfig : public testing::TestWithParam<BadConfig>
{};

TEST_P(RefusedConfig, NamesTheProblem)
{
    const auto config = parse(GetParam().toml);
    ASSERT_FALSE(config);
    EXPECT_NE(config.error().find(GetParam().says), std::string::npos) << config.error();
    EXPECT_NE(config.error().find("test.toml"), std::string::npos) << config.error();
}

INSTANTIATE_TEST_SUITE_P(
    Config, RefusedConfig,
    testing::Values(
        BadConfig{"[server]\nprot = 1", "server.prot: unknown key"},
        BadConfig{"[server]\nport = '1'", "server.port: must be a whole number"},
        BadConfig{"[server]\nport = 70000", "from 0 to 65535"},
        BadConfig{"[server]\nhost = 1", "server.host: must be a text"},
        BadConfig{"[server]\nallow_remote = 1", "must be true or false"},
        BadConfig{"[server]\nallowed_hosts = [1]", "must be a list of texts"},
        BadConfig{"[server]\ntrusted_proxies = ['10.0.0.0/33']", "is no address or network"},
        BadConfig{"[server]\nhost = '0.0.0.0'", "server.allow_remote = true"},
        BadConfig{"server = 1", "server: must be a table"}, BadConfig{"x = ", "line 1"},
        BadConfig{"[timing]\nkeep_alive_seconds = 30", "from 1 to 10"},
        BadConfig{"[service.admin_message]\ntype = 'BLOCKING'", "admin_message.id: is required"},
        BadConfig{"[service.admin_message]\nid = 'a'\ntype = 'X'", "must be \"BLOCKING\""},
        BadConfig{"[openai]\nbase_url = 'ftp://x'", "openai.base_url: must be an http"},
        BadConfig{"[openai]\nbase_url = 'http://a@b'", "openai.base_url: must be an http"},
        BadConfig{"[anthropic]\napi_key_file = '/nonexistent/key'", "cannot read a key"},
        BadConfig{"default_model = 'zzz'", "\"zzz\" is not one of the models"},
        BadConfig{"models = 1", "must be written as [[models]] tables"},
        BadConfig{"[[models]]\nprovider = 'offline'", "models.id: is required"},
        BadConfig{"[[models]]\nid = 'a'\nprovider = 'x'",
                  "models.provider: must be \"anthropic\", \"openai\" or \"offline\""},
        BadConfig{"[[models]]\nid = 'a'\nprovider = 'anthropic'",
                  "models: \"a\" needs anthropic.api_key or ANTHROPIC_API_KEY"},
        BadConfig{"[[models]]\nid = 'a'\nprovider = 'openai'",
                  "models: \"a\" needs openai.base_url or OPENAI_BASE_URL"},
        BadConfig{"[anthropic]\nbase_url = 'x'", "anthropic.base_url: must be an http"},
        BadConfig{"[anthropic]\nurl = 'x'", "anthropic.url: unknown key"},
        BadConfig{"[offline]\nbudget_milliseconds = 1", "from 100 to 600000"}));

TEST(Config, LoadsFilesAndNamesMissingOnes)
{
    const TemporaryDirectory directory;
    const auto file = directory.path() / "backend.toml";
    std::ofstream(file) << "[server]\nport = 1234\n";
    EXPECT_EQ(Config::load(file, environmentOf({}))->server.port, 1234);
    const auto missing = Config::load(directory.path() / "none.toml", environmentOf({}));
    ASSERT_FALSE(missing);
    EXPECT_NE(missing.error().find("none.toml"), std::string::npos);
}

TEST(Config, FindsTheDefaultFileInTheConfigDirectory)
{
    const TemporaryDirectory directory;
    const std::string home = directory.path().string();
    EXPECT_FALSE(Config::defaultFile(environmentOf({{"XDG_CONFIG_HOME", home}})));
    std::filesystem::create_directories(directory.path() / "Quellora");
    std::ofstream(directory.path() / "Quellora" / "backend.toml") << "\n";
    EXPECT_EQ(Config::defaultFile(environmentOf({{"XDG_CONFIG_HOME", home}})),
              directory.path() / "Quellora" / "backend.toml");
    EXPECT_EQ(Config::defaultFile(environmentOf({{"QUELLORA_BACKEND_CONFIG", "/named.toml"}})),
              "/named.toml");
}

TEST(Config, FallbacksNameOtherModels)
{
    const std::string base =
        "[anthropic]\napi_key = 'k'\n[openai]\nbase_url = 'http://127.0.0.1:1'\n";
    const auto model = [](const std::string &id, const std::string &provider,
                          const std::string &fallback) {
        return "[[models]]\nid = '" + id + "'\nprovider = '" + provider + "'\nfallback = [" +
               fallback + "]\n";
    };
    // Two models may stand in for each other.
    const auto config = parse(base + model("a", "anthropic", "'b', 'c'") +
                              model("b", "openai", "'a'") + model("c", "anthropic", ""));
    ASSERT_TRUE(config) << config.error();
    EXPECT_EQ(config->models[0].fallback, (std::vector<std::string>{"b", "c"}));
    // The list of models says where a picture may go, too.
    EXPECT_EQ(config->models[0].descriptor, "Falls back to the server itself");
    EXPECT_EQ(config->models[1].descriptor, "Falls back to api.anthropic.com");
    EXPECT_EQ(config->models[2].descriptor, "");

    const auto error = [&](const std::string &fallback) {
        const auto broken =
            parse(base + model("a", "anthropic", fallback) + model("b", "openai", ""));
        return broken ? "" : broken.error();
    };
    EXPECT_EQ(error("'x'"),
              "test.toml: models: \"a\" falls back to \"x\", which is not one of the models");
    EXPECT_EQ(error("'a'"), "test.toml: models: \"a\" falls back to \"a\" in a circle");
    EXPECT_EQ(error("'b', 'b'"), "test.toml: models: \"a\" falls back to \"b\" in a circle");
    EXPECT_EQ(error("'b', 'b', 'b', 'b', 'b'"),
              "test.toml: models.fallback: must name at most 4 models");
    EXPECT_EQ(error("7"), "test.toml: models.fallback: must be a list of texts");
}

TEST(Config, TimeLimitsOfAnswersAreReadAndChecked)
{
    const auto config =
        parse("[timing]\ntls_seconds = 7\nfirst_byte_seconds = 8\nstall_seconds = 9\n"
              "answer_seconds = 10\nretry_milliseconds = 11\n"
              "longest_retry_seconds = 12\n[limits]\nretries = 0");
    ASSERT_TRUE(config) << config.error();
    EXPECT_EQ(config->timing.tls, std::chrono::seconds(7));
    EXPECT_EQ(config->timing.firstByte, std::chrono::seconds(8));
    EXPECT_EQ(config->timing.stall, std::chrono::seconds(9));
    EXPECT_EQ(config->timing.answer, std::chrono::seconds(10));
    EXPECT_EQ(config->timing.retry, std::chrono::milliseconds(11));
    EXPECT_EQ(config->timing.longestRetry, std::chrono::seconds(12));
    EXPECT_EQ(config->limits.retries, 0);
    for (const char *line : {"tls_seconds = 0", "first_byte_seconds = 3601", "answer_seconds = 0",
                             "retry_milliseconds = 0", "longest_retry_seconds = 61",
                             "answer_seconds = 179", "answer_seconds = 3600\nstall_seconds = 3601"})
        EXPECT_FALSE(parse(std::string("[timing]\n") + line)) << line;
    EXPECT_FALSE(parse("[limits]\nretries = 6"));
}

} // namespace
} // namespace quellora::server
