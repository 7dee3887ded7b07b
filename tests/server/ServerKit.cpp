#include "ServerKit.h"

#include "base/Text.h"

#include <cstdlib>
#include <sstream>

namespace quellora::server {

TemporaryDirectory::TemporaryDirectory()
{
    std::string pattern =
        (std::filesystem::temp_directory_path() / "quellora-server-XXXXXX").string();
    m_path = ::mkdtemp(pattern.data());
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

PasswordCost weakCost()
{
    return PasswordCost{1, 8192};
}

Environment environmentOf(std::map<std::string, std::string> variables)
{
    return [variables = std::move(variables)](const char *name) -> std::optional<std::string> {
        const auto found = variables.find(name);
        if (found == variables.end())
            return std::nullopt;
        return found->second;
    };
}

Config testConfig(const TemporaryDirectory &directory, const std::string &toml,
                  const Environment &environment, const std::vector<Provider> &providers)
{
    Config config = Config::parse(toml, "test.toml", environment, providers).value();
    config.server.port = 0;
    config.server.threads = 16;
    config.security.passwordCost = weakCost();
    config.timing.retry = std::chrono::milliseconds(1);
    config.dataFile = directory.path() / "data" / "backend.sqlite";
    return config;
}

std::string fakeJpeg()
{
    return std::string("\xFF\xD8\xFF\xE0 not really a picture");
}

void addUsage(UsageLedger &usage, const Clock &clock, std::int64_t accountId, TokenCount tokens,
              const std::string &model)
{
    usage.count(accountId, billingPeriod(clock.now()), isoDay(clock.now()), model, tokens, 1);
}

AnswerOutcome completed(std::int64_t input, std::int64_t output)
{
    AnswerOutcome outcome;
    outcome.kind = AnswerOutcome::Kind::Complete;
    outcome.tokens = TokenCount{input, output};
    return outcome;
}

RunningServer::RunningServer(Config config, const Clock &clock, const AnswerFunction &answer,
                             OwnUserCheck ownUser)
    : m_hasher(config.security.passwordCost)
    , m_database(openDatabase(config))
    , m_accounts(*m_database, m_hasher, clock)
    , m_sessions(*m_database, clock, config.security.sessionLifetime,
                 config.security.handoverLifetime)
    , m_usage(*m_database, clock)
{
    if (answer) {
        for (ConfiguredProvider &provider : config.providers)
            provider.makeAnswer = [answer](const Config &) { return answerOnWorkers(answer); };
    }
    m_server = std::make_unique<BackendServer>(std::move(config), *m_database, m_hasher, clock,
                                               std::move(ownUser));
    m_accounts.create(email, password, "local", 0);
    m_port = m_server->bind().value();
    m_thread = std::thread([this] { m_server->run(); });
}

RunningServer::~RunningServer()
{
    stop();
}

void RunningServer::stop()
{
    if (!m_thread.joinable())
        return;
    m_server->stop();
    m_thread.join();
}

httplib::Client RunningServer::client() const
{
    httplib::Client client("127.0.0.1", m_port);
    client.set_read_timeout(std::chrono::seconds(60));
    return client;
}

Account RunningServer::account()
{
    return *m_accounts.findByEmail(email);
}

std::string RunningServer::token()
{
    return m_sessions.issue(account().id).token;
}

httplib::Result RunningServer::login(const std::string &mail, const std::string &pass) const
{
    return postJson("/api/auth/app-login", "",
                    {{"email", mail},
                     {"password", pass},
                     {"osVersion", "test"},
                     {"hotkeys", nlohmann::json::object()},
                     {"cpuArch", "arm64"}});
}

httplib::Result RunningServer::verify(const std::string &bearer) const
{
    return postJson(
        "/api/auth/app-verify", bearer,
        {{"osVersion", "test"}, {"hotkeys", nlohmann::json::object()}, {"cpuArch", "arm64"}});
}

httplib::Result RunningServer::postJson(const std::string &path, const std::string &bearer,
                                        const nlohmann::json &body) const
{
    httplib::Headers headers = {{"X-App-Version", "1.0.0"}};
    if (!bearer.empty())
        headers.emplace("Authorization", "Bearer " + bearer);
    return client().Post(path, headers, body.dump(), "application/json");
}

httplib::Result RunningServer::query(const std::string &bearer, const std::string &prompt,
                                     nlohmann::json extra) const
{
    extra["prompt"] = prompt;
    return postJson("/api/proxy/query", bearer, extra);
}

std::vector<nlohmann::json> events(const std::string &stream)
{
    std::vector<nlohmann::json> list;
    std::istringstream lines(stream);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind("data: ", 0) == 0)
            list.push_back(nlohmann::json::parse(line.substr(6)));
    }
    return list;
}

std::string answerText(const std::string &stream)
{
    std::string text;
    for (const nlohmann::json &event : events(stream)) {
        if (event.at("type") == "chunk")
            text += event.at("text").get<std::string>();
    }
    return text;
}

std::string lastType(const std::string &stream)
{
    const auto list = events(stream);
    return list.empty() ? "" : list.back().at("type").get<std::string>();
}

} // namespace quellora::server
