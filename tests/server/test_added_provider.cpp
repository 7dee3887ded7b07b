#include "ServerKit.h"

#include "cli/Commands.h"
#include "config/TomlReader.h"

#include <sstream>

namespace quellora::server {
namespace {

using nlohmann::json;

/// A provider that only this test knows. It repeats the question.
Provider echoProvider()
{
    return {"echo", [](TomlReader &table, const Environment &environment) {
                std::string greeting = "Hello";
                table.read("greeting", greeting);
                if (greeting.empty())
                    table.fail("greeting", "must not be empty");
                const auto name = environment("ECHO_NAME");
                ConfiguredProvider provider;
                provider.missing = name ? "" : "ECHO_NAME";
                provider.summary = name ? "greets " + *name : "";
                provider.setupVariable = "ECHO_NAME";
                provider.setupRemark = " for an echo";
                provider.models = {{"echo-1", "Echo One", "Repeats"}};
                provider.makeAnswer = [greeting, name](const Config &) {
                    return answerOnWorkers(
                        [text = greeting + " " + name.value_or("")](
                            const ModelRequest &request, const TextSink &sink, const StopToken &) {
                            sink(text + ", " + request.model + ": " + request.prompt);
                            return completed(3, 4);
                        });
                };
                return provider;
            }};
}

/// The built-in providers and the one of this test.
std::vector<Provider> allProviders()
{
    std::vector<Provider> providers = builtInProviders();
    providers.insert(providers.begin(), echoProvider());
    return providers;
}

class AddedProvider : public testing::Test
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;

    Config configured(const std::string &toml, std::map<std::string, std::string> variables) const
    {
        return testConfig(directory, toml, environmentOf(std::move(variables)), allProviders());
    }

    static std::string errorOf(const std::string &toml)
    {
        const auto config = Config::parse(toml, "test", environmentOf({}), allProviders());
        return config ? "" : config.error();
    }
};

TEST_F(AddedProvider, AnswersWithItsTableAndEnvironment)
{
    RunningServer server(configured("[echo]\ngreeting = 'Hi'", {{"ECHO_NAME", "Ann"}}), clock);
    const auto answer = server.query(server.token(), "Why?");
    EXPECT_EQ(answerText(answer->body), "Hi Ann, echo-1: Why?");
    EXPECT_EQ(events(answer->body).back().at("tokensUsed"), 7);
}

TEST_F(AddedProvider, OffersItsModels)
{
    RunningServer server(configured("", {{"ECHO_NAME", "Ann"}, {"ANTHROPIC_API_KEY", "k"}}), clock);
    const json record =
        json::parse(server.login(RunningServer::email, RunningServer::password)->body);
    EXPECT_EQ(
        record.at("config").at("availableModels"),
        json::array({{{"id", "echo-1"}, {"displayName", "Echo One"}, {"descriptor", "Repeats"}}}));
}

TEST_F(AddedProvider, AnswersForListedModels)
{
    RunningServer server(configured("[[models]]\nid = 'a'\nprovider = 'echo'\nupstream = 'b'",
                                    {{"ECHO_NAME", "Ann"}}),
                         clock);
    EXPECT_EQ(answerText(server.query(server.token(), "Why?")->body), "Hello Ann, b: Why?");
}

TEST_F(AddedProvider, WithoutItsSettingsTheOthersAnswer)
{
    EXPECT_EQ(configured("", {}).defaultModel, "offline");
    EXPECT_EQ(configured("[offline]\nforce = true", {{"ECHO_NAME", "Ann"}}).defaultModel,
              "offline");
}

TEST_F(AddedProvider, ErrorsNameItsTableKeysAndSettings)
{
    EXPECT_EQ(errorOf("[echo]\ngreetin = 'Hi'"), "test: echo.greetin: unknown key");
    EXPECT_EQ(errorOf("[echo]\ngreeting = ''"), "test: echo.greeting: must not be empty");
    EXPECT_EQ(errorOf("[[models]]\nid = 'a'\nprovider = 'echo'"),
              "test: models: \"a\" needs ECHO_NAME");
    EXPECT_EQ(errorOf("[[models]]\nid = 'a'\nprovider = 'x'"),
              "test: models.provider: must be \"echo\", \"anthropic\", \"openai\" or \"offline\"");
}

TEST_F(AddedProvider, IsNamedInHelpTexts)
{
    // Answers to the user who runs the server name the account page instead.
    RunningServer server(configured("", {}), clock, {}, [](const Request &) { return false; });
    EXPECT_NE(server.client().Get("/help")->body.find("set <code>ECHO_NAME</code> for an echo, or "
                                                      "<code>ANTHROPIC_API_KEY</code>, or"),
              std::string::npos);
    EXPECT_NE(answerText(server.query(server.token(), "Why?")->body)
                  .find("set `ECHO_NAME` for an echo, or `ANTHROPIC_API_KEY`, or"),
              std::string::npos);
}

TEST_F(AddedProvider, IsShownByCheckConfig)
{
    std::istringstream in;
    std::ostringstream out;
    CommandContext context{in, out, out, environmentOf({{"ECHO_NAME", "Ann"}}), allProviders()};
    EXPECT_EQ(runCommand({"check-config"}, context), exitSuccess);
    EXPECT_NE(out.str().find("model: echo-1 (echo, echo-1)\necho: greets Ann\n"), std::string::npos)
        << out.str();
}

} // namespace
} // namespace quellora::server
