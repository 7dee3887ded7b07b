#include "ServerKit.h"

#include "cli/Commands.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <map>
#include <sstream>

namespace quellora::server {
namespace {

using nlohmann::json;

struct Outcome
{
    int status = -1;
    std::string out;
    std::string err;
};

class Cli : public testing::Test
{
protected:
    TemporaryDirectory directory;

    Outcome run(const std::vector<std::string> &words, const std::string &input = "",
                std::map<std::string, std::string> variables = {})
    {
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        variables.emplace("XDG_DATA_HOME", directory.path().string());
        CommandContext context{in, out, err, environmentOf(std::move(variables))};
        Outcome outcome;
        outcome.status = runCommand(words, context);
        outcome.out = out.str();
        outcome.err = err.str();
        return outcome;
    }

    std::filesystem::path dataFile() const
    {
        return directory.path() / "Quellora" / "backend.sqlite";
    }

    bool accepts(const std::string &email, const std::string &password)
    {
        const SystemClock clock;
        const PasswordHasher hasher(weakCost());
        SqliteDatabase database(dataFile());
        return Accounts(database, hasher, clock).authenticate(email, password).has_value();
    }
};

std::string valueOf(const std::string &text, const std::string &name)
{
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind(name + ": ", 0) == 0)
            return line.substr(name.size() + 2);
    }
    return "";
}

TEST_F(Cli, EnsureAccountCreatesTheAccountOnceAndPrintsItsPasswordOnce)
{
    const Outcome first = run({"ensure-account"});
    EXPECT_EQ(first.status, 0);
    const std::string password = valueOf(first.out, "password");
    EXPECT_EQ(first.out, "email: me@localhost\npassword: " + password + "\n");
    EXPECT_TRUE(accepts("me@localhost", password));
    const Outcome second = run({"ensure-account"});
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.out, "email: me@localhost\n");
    EXPECT_TRUE(accepts("me@localhost", password));
}

TEST_F(Cli, EnsureAccountUsesTheGivenAddressOrTheFirstAccount)
{
    EXPECT_EQ(valueOf(run({"ensure-account", "Bob@X.org"}).out, "email"), "bob@x.org");
    EXPECT_EQ(run({"ensure-account"}).out, "email: bob@x.org\n");
    EXPECT_NE(valueOf(run({"ensure-account", "eve@x.org"}).out, "password"), "");
    EXPECT_EQ(run({"ensure-account", "not an address"}).status, 2);
    EXPECT_EQ(run({"ensure-account", "a@b", "c@d"}).status, 2);
}

TEST_F(Cli, CreateAccountReadsOrGeneratesThePassword)
{
    EXPECT_EQ(run({"create-account", "a@x.org", "--password-stdin"}, "long enough\r\n").status, 0);
    EXPECT_TRUE(accepts("a@x.org", "long enough"));
    const Outcome generated = run({"create-account", "b@x.org", "--generate"});
    EXPECT_TRUE(accepts("b@x.org", valueOf(generated.out, "password")));
    const Outcome again = run({"create-account", "a@x.org", "--generate"});
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("already"), std::string::npos);
    EXPECT_EQ(again.out, "");
    EXPECT_EQ(run({"create-account", "c@x.org", "--password-stdin"}, "short\n").status, 1);
    EXPECT_EQ(run({"create-account", "c@x.org"}).status, 2);
    EXPECT_EQ(run({"create-account", "c@x.org", "--generate", "--password-stdin"}).status, 2);
    EXPECT_EQ(run({"create-account", "nonsense", "--generate"}).status, 2);
    EXPECT_EQ(run({"create-account", "--generate"}).status, 2);
}

TEST_F(Cli, AccountsAreModified)
{
    run({"create-account", "a@x.org", "--generate", "--cap", "500", "--plan=team"});
    const auto listed = [&] { return json::parse(run({"list-accounts", "--json"}).out).at(0); };
    EXPECT_EQ(listed(), json({{"email", "a@x.org"},
                              {"plan", "team"},
                              {"tokenCap", 500},
                              {"tokensUsed", 0},
                              {"queries", 0},
                              {"suspended", false}}));
    EXPECT_EQ(run({"set-cap", "A@x.org", "0"}).status, 0);
    EXPECT_EQ(run({"set-plan", "a@x.org", "pro"}).status, 0);
    EXPECT_EQ(run({"suspend", "a@x.org"}).status, 0);
    EXPECT_EQ(listed().at("tokenCap"), 0);
    EXPECT_EQ(listed().at("plan"), "pro");
    EXPECT_EQ(listed().at("suspended"), true);
    EXPECT_NE(run({"list-accounts"})
                  .out.find("0 of unlimited tokens, 0 queries, plan pro, "
                            "suspended"),
              std::string::npos);
    EXPECT_EQ(run({"resume", "a@x.org"}).status, 0);
    EXPECT_EQ(listed().at("suspended"), false);
    EXPECT_EQ(run({"delete-account", "a@x.org"}).status, 0);
    EXPECT_EQ(run({"list-accounts"}).out, "");
}

TEST_F(Cli, SetPasswordReplacesTheOldOne)
{
    const std::string old = valueOf(run({"ensure-account", "a@x.org"}).out, "password");
    const Outcome outcome = run({"set-password", "a@x.org", "--generate"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_FALSE(accepts("a@x.org", old));
    EXPECT_TRUE(accepts("a@x.org", valueOf(outcome.out, "password")));
}

TEST_F(Cli, SignOutEndsAllSessions)
{
    run({"ensure-account", "a@x.org"});
    {
        const SystemClock clock;
        SqliteDatabase database(dataFile());
        Sessions(database, clock, std::chrono::hours(1), std::chrono::minutes(1)).issue(1);
    }
    EXPECT_EQ(run({"sign-out", "a@x.org"}).out, "ended 1 sessions\n");
    EXPECT_EQ(run({"sign-out", "a@x.org"}).out, "ended 0 sessions\n");
}

TEST_F(Cli, UnknownAccountIsAFailure)
{
    for (const std::vector<std::string> &words :
         std::vector<std::vector<std::string>>{{"set-cap", "no@x.org", "1"},
                                               {"set-plan", "no@x.org", "p"},
                                               {"suspend", "no@x.org"},
                                               {"resume", "no@x.org"},
                                               {"sign-out", "no@x.org"},
                                               {"delete-account", "no@x.org"},
                                               {"set-password", "no@x.org", "--generate"}}) {
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.status, 1) << words.front();
        EXPECT_NE(outcome.err.find("there is no account no@x.org"), std::string::npos);
    }
}

TEST_F(Cli, WrongUsageIsReportedOnStandardErrorWithStatus2)
{
    for (const std::vector<std::string> &words :
         std::vector<std::vector<std::string>>{{},
                                               {"frobnicate"},
                                               {"serve", "now"},
                                               {"serve", "--port"},
                                               {"serve", "--port", "x"},
                                               {"serve", "--port", "70000"},
                                               {"serve", "--fast"},
                                               {"serve", "-x"},
                                               {"serve", "--offline=yes"},
                                               {"set-cap", "a@x.org"},
                                               {"set-cap", "a@x.org", "-5"},
                                               {"set-cap", "a@x.org", "many"},
                                               {"list-accounts", "x"}}) {
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_NE(outcome.err.find("Usage: quellora-backend"), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out, "");
    }
}

TEST_F(Cli, WrongUsageNamesTheProblemAndTheUsageOfTheCommand)
{
    EXPECT_EQ(run({"set-cap", "a@x.org", "many"}).err,
              "quellora-backend: TOKENS: \"many\" is not a whole number up to 1000000000000\n"
              "Usage: quellora-backend set-cap EMAIL TOKENS\n"
              "Run quellora-backend --help for all commands and options.\n");
    EXPECT_NE(run({"frobnicate"}).err.find("frobnicate"), std::string::npos);
    EXPECT_NE(run({"create-account", "a@x.org"}).err.find("either --generate or --password-stdin"),
              std::string::npos);
}

TEST_F(Cli, OptionsMayPrecedeTheCommandAndTheLastOfEqualOnesCounts)
{
    EXPECT_EQ(run({"--generate", "--cap=5", "--cap", "010", "create-account", "a@x.org"}).status,
              0);
    const json accounts = json::parse(run({"--json", "list-accounts"}).out);
    EXPECT_EQ(accounts.at(0).at("tokenCap"), 10);
    EXPECT_EQ(run({"set-plan", "a@x.org", "serve"}).status, 0);
    EXPECT_EQ(run({"set-plan", "a@x.org", "--", "--free"}).status, 0);
    EXPECT_EQ(json::parse(run({"list-accounts", "--json"}).out).at(0).at("plan"), "--free");
}

TEST_F(Cli, HelpAndVersionGoToStandardOutput)
{
    const Outcome help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(run({"serve", "-h"}).out, help.out);
    EXPECT_NE(help.out.find("--port"), std::string::npos);
    for (const char *command : {"serve", "ensure-account", "create-account", "set-password",
                                "set-cap", "suspend", "list-accounts", "check-config"})
        EXPECT_NE(help.out.find(command), std::string::npos) << command;
    EXPECT_EQ(run({"--version"}).out.rfind("quellora-backend ", 0), 0U);
}

TEST_F(Cli, CheckConfigShowsModelsButNoKeys)
{
    const Outcome outcome = run({"check-config"}, "", {{"ANTHROPIC_API_KEY", "sk-secret"}});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.out.find("model: claude-opus-4-5 (anthropic, claude-opus-4-5)\n"
                               "model: claude-haiku-4-5 (anthropic, claude-haiku-4-5)\n"
                               "anthropic: https://api.anthropic.com, key set\n"),
              std::string::npos)
        << outcome.out;
    EXPECT_NE(run({"check-config"}, "", {{"OPENAI_BASE_URL", "http://localhost"}})
                  .out.find("model: default (openai, default)\n"
                            "openai: http://localhost, key not set\n"),
              std::string::npos);
    EXPECT_EQ(outcome.out.find("sk-secret"), std::string::npos);
    EXPECT_NE(run({"check-config", "--offline"}, "", {{"ANTHROPIC_API_KEY", "k"}})
                  .out.find("default model: offline"),
              std::string::npos);
}

TEST_F(Cli, InvalidConfigurationIsAFailure)
{
    const auto file = directory.path() / "bad.toml";
    std::ofstream(file) << "nonsense = 1\n";
    const Outcome outcome = run({"--config", file.string(), "list-accounts"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("nonsense: unknown key"), std::string::npos);
    EXPECT_EQ(run({"serve", "--host", "0.0.0.0"}).status, 1);
}

TEST_F(Cli, UnusableDataFileIsAFailure)
{
    const auto file = directory.path() / "garbage";
    std::ofstream(file) << std::string(4096, 'x');
    const Outcome outcome = run({"--data", file.string(), "list-accounts"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("garbage"), std::string::npos);
}

/// The real program serving on a free port.
class Program
{
public:
    explicit Program(const std::filesystem::path &directory) : m_directory(directory)
    {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        ::fcntl(ends[0], F_SETFD, FD_CLOEXEC);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
        posix_spawn_file_actions_addclose(&actions, ends[1]);
        posix_spawn_file_actions_addopen(&actions, 2, (directory / "stderr").c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const std::string data = (directory / "served.sqlite").string();
        const char *words[] = {BACKEND_PROGRAM, "serve",      "--offline", "--port", "0",
                               "--data",        data.c_str(), nullptr};
        EXPECT_EQ(::posix_spawn(&m_pid, BACKEND_PROGRAM, &actions, nullptr,
                                const_cast<char **>(words), environ),
                  0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        m_out = ends[0];
        char byte = 0;
        while (::read(m_out, &byte, 1) == 1 && byte != '\n')
            m_line += byte;
    }
    ~Program()
    {
        if (m_pid > 0)
            end(SIGKILL);
        ::close(m_out);
    }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    const std::string &firstLine() const { return m_line; }
    std::filesystem::path data() const { return m_directory / "served.sqlite"; }
    /// Sends the signal and returns the raw wait status.
    int end(int signal)
    {
        ::kill(m_pid, signal);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_pid = -1;
        return status;
    }
    std::string restOfOutput()
    {
        std::string text;
        char byte = 0;
        while (::read(m_out, &byte, 1) == 1)
            text += byte;
        return text;
    }

private:
    std::filesystem::path m_directory;
    pid_t m_pid = -1;
    int m_out = -1;
    std::string m_line;
};

class ServeProgram : public Cli, public testing::WithParamInterface<int>
{};

TEST_P(ServeProgram, AnnouncesItselfAndServesUntilASignal)
{
    Program program(directory.path());
    const std::string announcement = "listening on http://127.0.0.1:";
    ASSERT_EQ(program.firstLine().rfind(announcement, 0), 0U) << program.firstLine();
    httplib::Client client("127.0.0.1", std::stoi(program.firstLine().substr(announcement.size())));
    EXPECT_EQ(client.Get("/healthz")->status, 200);

    // Accounts created while the server runs are usable at once.
    const Outcome made = run({"--data", program.data().string(), "ensure-account", "a@x.org"});
    const std::string password = valueOf(made.out, "password");
    const auto login = client.Post("/api/auth/app-login",
                                   json({{"email", "a@x.org"}, {"password", password}}).dump(),
                                   "application/json");
    ASSERT_EQ(login->status, 200);
    const std::string token = json::parse(login->body).at("token");
    const auto answer = client.Post("/api/proxy/query", {{"Authorization", "Bearer " + token}},
                                    R"({"prompt":"my private prompt"})", "application/json");
    EXPECT_EQ(lastType(answer->body), "done");

    const int status = program.end(GetParam());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(program.restOfOutput(), "");
    struct stat info = {};
    ASSERT_EQ(::stat(program.data().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);

    std::ifstream file(directory.path() / "stderr");
    std::ostringstream log;
    log << file.rdbuf();
    EXPECT_NE(log.str().find("[Serve] Stopped"), std::string::npos);
    for (const std::string &secret :
         {password, token, std::string("my private prompt"), std::string("No model")})
        EXPECT_EQ(log.str().find(secret), std::string::npos) << secret;
}

INSTANTIATE_TEST_SUITE_P(Signals, ServeProgram, testing::Values(SIGTERM, SIGINT));

TEST_F(Cli, TakenPortIsAFailure)
{
    Program program(directory.path());
    const std::string port = program.firstLine().substr(program.firstLine().rfind(':') + 1);
    const Outcome outcome = run({"serve", "--port", port, "--offline"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("port " + port), std::string::npos);
    EXPECT_EQ(outcome.out, "");
}

} // namespace
} // namespace quellora::server
