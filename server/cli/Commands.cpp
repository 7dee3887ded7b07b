#include "cli/Commands.h"

#include "base/JsonAccess.h"
#include "base/Text.h"
#include "store/Accounts.h"
#include "store/Sessions.h"
#include "store/UsageLedger.h"

#include <iomanip>
#include <istream>
#include <ostream>

namespace quellora::server {
namespace {

constexpr const char *usageText = R"(Usage: quellora-backend [OPTIONS] COMMAND

Commands:
  serve                    answer the app's requests until SIGINT or SIGTERM
  ensure-account [EMAIL]   create the first account unless there is one (EMAIL: me@localhost);
                           prints "email: ..." and, when created, "password: ..."
  create-account EMAIL     add an account; password from --password-stdin or --generate
  set-password EMAIL       new password, same options; ends the account's sessions
  set-cap EMAIL TOKENS     tokens per calendar month, 0 for no cap
  set-plan EMAIL NAME      the plan's name as the app shows it
  suspend EMAIL            refuse the account from now on
  resume EMAIL             accept it again
  sign-out EMAIL           end all its sessions
  delete-account EMAIL     remove it with its usage and telemetry
  list-accounts [--json]   accounts with this month's usage
  check-config             read the configuration and say what is in force

Options:
  --config FILE       TOML file (default: $QUELLORA_BACKEND_CONFIG,
                      then $XDG_CONFIG_HOME/Quellora/backend.toml when present)
  --data FILE         SQLite file (default: $XDG_DATA_HOME/Quellora/backend.sqlite)
  --host ADDRESS      listen there (default 127.0.0.1)
  --port N            listen there (default 9878, 0 picks a free port)
  --offline           ignore configured models
  --cap TOKENS, --plan NAME   for create-account
  --password-stdin    read the password from the first line of standard input
  --generate          make up a password and print it once
  --help, --version
)";

constexpr std::size_t shortestPassword = 8;
constexpr std::size_t longestPassword = 1024;
constexpr const char *firstAccount = "me@localhost";

/// A failure to be reported to the user with an exit status.
struct CommandFailure
{
    int status;
    std::string text;
};

[[noreturn]] void fail(const std::string &text)
{
    throw CommandFailure{exitFailure, text};
}
[[noreturn]] void misuse(const std::string &text)
{
    throw CommandFailure{exitUsage, text};
}

/// What the account commands work on.
struct Store
{
    explicit Store(const Config &config)
        : hasher(config.security.passwordCost)
        , database(config.dataFile)
        , accounts(database, hasher, clock)
        , sessions(database, clock, config.security.sessionLifetime,
                   config.security.handoverLifetime)
        , usage(database, clock)
    {}

    SystemClock clock;
    PasswordHasher hasher;
    Database database;
    Accounts accounts;
    Sessions sessions;
    UsageLedger usage;
};

std::string emailWord(const Arguments &arguments, std::size_t words)
{
    if (arguments.words.size() != words)
        misuse(arguments.command + " takes " + std::to_string(words) +
               (words == 1 ? " word" : " words") + "; see --help");
    const auto email = normalizedEmail(arguments.words.front());
    if (!email)
        misuse("\"" + arguments.words.front() + "\" is not an e-mail address");
    return *email;
}

std::int64_t tokenCount(const std::string &text)
{
    const auto count = parseCount(text);
    if (!count || *count > 1000000000000LL)
        misuse("\"" + text + "\" is not a number of tokens");
    return *count;
}

struct ChosenPassword
{
    std::string password;
    bool generated = false;
};

ChosenPassword choosePassword(const Arguments &arguments, CommandContext &context)
{
    if (arguments.has("generate") == arguments.has("password-stdin"))
        misuse("give either --generate or --password-stdin");
    if (arguments.has("generate")) {
        initializeCrypto();
        return {randomPassword(), true};
    }
    ChosenPassword chosen;
    std::getline(context.in, chosen.password);
    if (!chosen.password.empty() && chosen.password.back() == '\r')
        chosen.password.pop_back();
    if (chosen.password.size() < shortestPassword || chosen.password.size() > longestPassword)
        fail("a password has " + std::to_string(shortestPassword) + " to " +
             std::to_string(longestPassword) + " bytes");
    return chosen;
}

void printAccount(std::ostream &out, const std::string &email, const ChosenPassword &chosen)
{
    out << "email: " << email << '\n';
    if (chosen.generated)
        out << "password: " << chosen.password << '\n';
}

void createAccount(const Config &config, const Arguments &arguments, CommandContext &context)
{
    const std::string email = emailWord(arguments, 1);
    const auto cap = arguments.value("cap");
    const std::int64_t tokens = cap ? tokenCount(*cap) : config.service.defaultTokenCap;
    const ChosenPassword chosen = choosePassword(arguments, context);
    Store store(config);
    if (!store.accounts.create(email, chosen.password,
                               arguments.value("plan").value_or(config.service.defaultPlan),
                               tokens))
        fail("there is already an account " + email);
    printAccount(context.out, email, chosen);
}

void ensureAccount(const Config &config, const Arguments &arguments, CommandContext &context)
{
    if (arguments.words.size() > 1)
        misuse("ensure-account takes at most one word; see --help");
    Store store(config);
    const auto existing = store.accounts.all();
    if (arguments.words.empty() && !existing.empty()) {
        printAccount(context.out, existing.front().email, {});
        return;
    }
    const auto email = normalizedEmail(arguments.words.empty() ? std::string(firstAccount)
                                                               : arguments.words.front());
    if (!email)
        misuse("\"" + arguments.words.front() + "\" is not an e-mail address");
    const ChosenPassword chosen{randomPassword(), true};
    const bool created = store.accounts
                             .create(*email, chosen.password, config.service.defaultPlan,
                                     config.service.defaultTokenCap)
                             .has_value();
    printAccount(context.out, *email, created ? chosen : ChosenPassword{});
}

void setPassword(const Config &config, const Arguments &arguments, CommandContext &context)
{
    const std::string email = emailWord(arguments, 1);
    const ChosenPassword chosen = choosePassword(arguments, context);
    Store store(config);
    if (!store.accounts.setPassword(email, chosen.password))
        fail("there is no account " + email);
    printAccount(context.out, email, chosen);
}

void signOut(const Config &config, const Arguments &arguments, CommandContext &context)
{
    const std::string email = emailWord(arguments, 1);
    Store store(config);
    const auto account = store.accounts.findByEmail(email);
    if (!account)
        fail("there is no account " + email);
    context.out << "ended " << store.sessions.revokeAll(account->id) << " sessions\n";
}

/// The commands that change one thing about one account.
void changeAccount(const Config &config, const Arguments &arguments, CommandContext &context)
{
    const std::string &command = arguments.command;
    const bool hasValue = command == "set-cap" || command == "set-plan";
    const std::string email = emailWord(arguments, hasValue ? 2 : 1);
    const std::string value = hasValue ? arguments.words[1] : std::string();
    const std::int64_t tokens = command == "set-cap" ? tokenCount(value) : 0;
    Store store(config);
    bool found = false;
    if (command == "set-cap")
        found = store.accounts.setTokenCap(email, tokens);
    else if (command == "set-plan")
        found = store.accounts.setPlan(email, value);
    else if (command == "delete-account")
        found = store.accounts.remove(email);
    else
        found = store.accounts.setSuspended(email, command == "suspend");
    if (!found)
        fail("there is no account " + email);
    context.out << command << ": " << email << '\n';
}

void listAccounts(const Config &config, const Arguments &arguments, CommandContext &context)
{
    Store store(config);
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Account &account : store.accounts.all()) {
        const std::int64_t used = store.usage.current(account.id).total();
        const std::int64_t queries = store.usage.queries(account.id);
        list.push_back({{"email", account.email},
                        {"plan", account.plan},
                        {"tokenCap", account.tokenCap},
                        {"tokensUsed", used},
                        {"queries", queries},
                        {"suspended", account.suspended}});
        if (arguments.has("json"))
            continue;
        context.out << std::left << std::setw(32) << account.email << "  " << used << " of "
                    << (account.tokenCap > 0 ? std::to_string(account.tokenCap) : "unlimited")
                    << " tokens, " << queries << " queries, plan " << account.plan
                    << (account.suspended ? ", suspended" : "") << '\n';
    }
    if (arguments.has("json"))
        context.out << list.dump(2) << '\n';
}

void checkConfig(const Config &config, CommandContext &context)
{
    context.out << "listen: " << config.server.host << " port " << config.server.port << '\n'
                << "data file: " << config.dataFile.string() << '\n'
                << "default model: " << config.defaultModel << '\n';
    for (const ModelSettings &model : config.models)
        context.out << "model: " << model.id << " (" << model.provider << ", " << model.upstream
                    << ")\n";
    for (const ConfiguredProvider &provider : config.providers) {
        if (!provider.summary.empty())
            context.out << provider.name << ": " << provider.summary << '\n';
    }
}

Config loadConfig(const Arguments &arguments, const CommandContext &context)
{
    std::optional<std::filesystem::path> file;
    if (const auto named = arguments.value("config"))
        file = *named;
    else
        file = Config::defaultFile(context.environment);
    auto config = Config::load(file, context.environment, context.providers);
    if (!config)
        fail(config.error());
    if (const auto data = arguments.value("data"))
        config->dataFile = *data;
    if (const auto port = arguments.value("port")) {
        const auto number = parseCount(*port);
        if (!number || *number > 65535)
            misuse("\"" + *port + "\" is not a port");
        config->server.port = static_cast<int>(*number);
    }
    if (const auto host = arguments.value("host")) {
        const bool loopback = *host == "127.0.0.1" || *host == "localhost" || *host == "::1";
        if (!loopback && !config->server.allowRemote)
            fail("\"" + *host +
                 "\" can be reached from other machines; set "
                 "server.allow_remote = true in the configuration to mean it");
        config->server.host = *host;
    }
    if (arguments.has("offline"))
        config->useFallbackProvider();
    return *config;
}

int dispatch(const Arguments &arguments, CommandContext &context)
{
    const std::string &command = arguments.command;
    const Config config = loadConfig(arguments, context);
    if (command == "serve" && arguments.words.empty())
        return serve(config, context);
    if (command == "ensure-account")
        ensureAccount(config, arguments, context);
    else if (command == "create-account")
        createAccount(config, arguments, context);
    else if (command == "set-password")
        setPassword(config, arguments, context);
    else if (command == "set-cap" || command == "set-plan" || command == "suspend" ||
             command == "resume" || command == "delete-account")
        changeAccount(config, arguments, context);
    else if (command == "sign-out")
        signOut(config, arguments, context);
    else if (command == "list-accounts" && arguments.words.empty())
        listAccounts(config, arguments, context);
    else if (command == "check-config" && arguments.words.empty())
        checkConfig(config, context);
    else
        misuse("unknown command \"" + command + "\"; see --help");
    return exitSuccess;
}

} // namespace

int runCommand(const std::vector<std::string> &words, CommandContext &context)
{
    try {
        const auto arguments = Arguments::parse(words);
        if (!arguments)
            misuse(arguments.error());
        if (arguments->has("help")) {
            context.out << usageText;
            return exitSuccess;
        }
        if (arguments->has("version")) {
            context.out << "quellora-backend " QUELLORA_VERSION "\n";
            return exitSuccess;
        }
        if (arguments->command.empty()) {
            context.err << usageText;
            return exitUsage;
        }
        return dispatch(*arguments, context);
    } catch (const CommandFailure &failure) {
        context.err << "quellora-backend: " << failure.text << '\n';
        return failure.status;
    } catch (const DatabaseError &problem) {
        context.err << "quellora-backend: " << problem.what() << '\n';
        return exitFailure;
    }
}

} // namespace quellora::server
