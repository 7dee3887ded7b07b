#include "cli/Commands.h"

#include "admin/AdminActions.h"
#include "base/JsonAccess.h"
#include "base/Text.h"
#include "cli/AdminCommands.h"
#include "cli/CommandOptions.h"
#include "providers/UpstreamSettings.h"
#include "store/Accounts.h"
#include "store/Connections.h"
#include "store/Migrations.h"
#include "store/OpenDatabase.h"
#include "store/PrivateFile.h"
#include "store/Sessions.h"
#include "store/StoreCopy.h"
#include "store/UsageLedger.h"

#include <iomanip>
#include <istream>
#include <ostream>
#include <stdexcept>

namespace quellora::server {
namespace {

constexpr const char *firstAccount = "me@localhost";

using Options = CommandOptions;

/// The stored data that the account commands work on.
struct Store
{
    explicit Store(const Config &config)
        : hasher(config.security.passwordCost)
        , database(openDatabase(config))
        , accounts(*database, hasher, clock)
        , sessions(*database, clock, config.security.sessionLifetime,
                   config.security.handoverLifetime)
        , usage(*database, clock)
        , admin(config, *database, hasher, clock, {})
        , actions(admin, "command line")
    {}

    /// The id of an existing account.
    std::int64_t idOf(const std::string &email);

    SystemClock clock;
    PasswordHasher hasher;
    std::unique_ptr<Database> database;
    Accounts accounts;
    Sessions sessions;
    UsageLedger usage;
    AdminStore admin;
    AdminActions actions;
};

[[noreturn]] void failWithoutAccount(const std::string &email)
{
    throw std::runtime_error("there is no account " + email);
}

std::int64_t Store::idOf(const std::string &email)
{
    const auto account = accounts.findByEmail(email);
    if (!account)
        failWithoutAccount(email);
    return account->id;
}

void printAccount(std::ostream &out, const std::string &email, const ChosenPassword &chosen)
{
    out << "email: " << email << '\n';
    if (chosen.generated)
        out << "password: " << chosen.password << '\n';
}

void ensureAccount(const Options &options, const Config &config, CommandContext &context)
{
    Store store(config);
    const auto existing = store.accounts.all();
    if (options.email.empty() && !existing.empty()) {
        printAccount(context.out, existing.front().email, {});
        return;
    }
    const std::string email = options.email.empty() ? firstAccount : options.email;
    const ChosenPassword chosen{randomPassword(), true};
    const bool created = store.actions
                             .create(email, chosen.password, config.service.defaultPlan,
                                     config.service.defaultTokenCap)
                             .has_value();
    printAccount(context.out, email, created ? chosen : ChosenPassword{});
}

void createAccount(const Options &options, const Config &config, CommandContext &context)
{
    const ChosenPassword chosen = choosePassword(options, context.in);
    Store store(config);
    const auto created = store.actions.create(options.email, chosen.password,
                                              options.plan.value_or(config.service.defaultPlan),
                                              options.cap.value_or(config.service.defaultTokenCap));
    if (!created)
        throw std::runtime_error(created.error());
    printAccount(context.out, options.email, chosen);
}

void setPassword(const Options &options, const Config &config, CommandContext &context)
{
    const ChosenPassword chosen = choosePassword(options, context.in);
    Store store(config);
    const auto set = store.actions.setPassword(store.idOf(options.email), chosen.password);
    if (!set)
        throw std::runtime_error(set.error());
    printAccount(context.out, options.email, chosen);
}

void signOut(const Options &options, const Config &config, CommandContext &context)
{
    Store store(config);
    const auto ended = store.actions.signOut(store.idOf(options.email));
    if (!ended)
        throw std::runtime_error(ended.error());
    context.out << "ended " << *ended << " sessions\n";
}

void listAccounts(const Options &options, const Config &config, CommandContext &context)
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
        if (options.json)
            continue;
        context.out << std::left << std::setw(32) << account.email << "  " << used << " of "
                    << (account.tokenCap > 0 ? std::to_string(account.tokenCap) : "unlimited")
                    << " tokens, " << queries << " queries, plan " << account.plan
                    << (account.suspended ? ", suspended" : "") << '\n';
    }
    if (options.json)
        context.out << list.dump(2) << '\n';
}

void checkConfig(const Options &, const Config &config, CommandContext &context)
{
    context.out << "listen: " << config.server.host << " port " << config.server.port << '\n'
                << "store: " << describeDatabase(config) << '\n'
                << "default model: " << config.defaultModel << '\n';
    for (const ModelSettings &model : config.models)
        context.out << "model: " << model.id << " (" << model.provider << ", " << model.upstream
                    << ")\n";
    for (const ConfiguredProvider &provider : config.providers) {
        if (!provider.summary.empty())
            context.out << provider.name << ": " << provider.summary << '\n';
    }
    const auto connections = ConnectionFile(config.connectionFile()).load();
    if (!connections) {
        context.out << "connected models cannot be read: " << connections.error() << '\n';
        return;
    }
    for (const Connection &connection : *connections) {
        for (const ConnectedModel &model : connection.models)
            context.out << "connected on the account page: " << model.name << " ("
                        << connection.provider << ", " << hostOfUrl(connection.baseUrl)
                        << (config.takesConnections ? ")\n" : "), ignored offline\n");
    }
}

void migrateStore(const Options &, const Config &config, CommandContext &context)
{
    // Opening migrates.
    const auto database = openDatabase(config);
    context.out << "schema " << database->schemaVersion() << " in " << describeDatabase(config)
                << '\n';
}

void printCounts(std::ostream &out, const RowCounts &counts)
{
    for (const auto &[table, rows] : counts)
        out << table << ": " << rows << '\n';
}

void backUpStore(const Options &options, const Config &config, CommandContext &context)
{
    printCounts(context.out, backUp(*openDatabase(config), options.file));
}

void restoreStore(const Options &options, const Config &config, CommandContext &context)
{
    printCounts(context.out, restore(*openDatabase(config), options.file));
}

void copyBetweenStores(const Options &options, const Config &config, CommandContext &context)
{
    const auto placed = [&config](const std::string &address) {
        Config place = config;
        if (!place.useDatabase(address))
            throw std::runtime_error("a store is \"sqlite:PATH\" or \"postgresql://…\"");
        return place;
    };
    const Config from = placed(options.from);
    const Config to = placed(options.to);
    // Opening would create it.
    if (from.postgres.url.empty() && !std::filesystem::exists(from.dataFile))
        throw std::runtime_error("there is no file " + from.dataFile.string());
    printCounts(context.out, copyStore(*openDatabase(from), *openDatabase(to)));
}

void exportPerson(const Options &options, const Config &config, CommandContext &context)
{
    Store store(config);
    PrivateFile file(options.file);
    const auto record = store.actions.exportPerson(store.idOf(options.email));
    if (!record)
        throw std::runtime_error(record.error());
    file.write(*record);
    file.finish();
    context.out << "exported: " << options.email << '\n';
}

Config loadConfig(const Options &options, const CommandContext &context)
{
    const auto file = options.config ? std::filesystem::path(*options.config)
                                     : Config::defaultFile(context.environment);
    auto config = Config::load(file, context.environment, context.providers);
    if (!config)
        throw std::runtime_error(config.error());
    if (options.data) {
        config->dataFile = *options.data;
        config->postgres.url.clear();
    }
    if (options.database && !config->useDatabase(*options.database))
        throw std::runtime_error("--database takes \"sqlite:PATH\" or \"postgresql://…\"");
    config->server.port = options.port.value_or(config->server.port);
    config->server.host = options.host.value_or(config->server.host);
    if (!config->server.isHostPermitted())
        throw std::runtime_error("\"" + config->server.host +
                                 "\" can be reached from other machines; set "
                                 "server.allow_remote = true in the configuration to mean it");
    if (options.offline)
        config->useFallbackProvider();
    return *config;
}

/// Lists each command with its arguments.
class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter()
    {
        column_width(28);
        label("SUBCOMMAND", "COMMAND");
    }
    std::string make_subcommand(const CLI::App *command) const override
    {
        std::string usage = command->get_name();
        for (const CLI::Option *argument : command->get_options())
            usage += ' ' + make_option_usage(argument);
        std::ostringstream text;
        CLI::detail::format_help(text, usage, command->get_description(), get_column_width());
        return text.str();
    }
};

/// The error, followed by the usage of the given command.
std::string wrongUsage(const CLI::App *app, const CLI::Error &error)
{
    const auto commands = app->get_subcommands();
    const CLI::App *used = commands.empty() ? app : commands.front();
    const std::string name =
        app->get_name() + (commands.empty() ? "" : " " + commands.front()->get_name());
    return app->get_name() + ": " + error.what() + '\n' + HelpFormatter().make_usage(used, name) +
           "Run " + app->get_name() + " --help for all commands and options.\n";
}

} // namespace

int runCommand(const std::vector<std::string> &words, CommandContext &context)
{
    Options options;
    std::function<void(const Config &)> run;
    int status = exitSuccess;
    CLI::App app("The local backend of Quellora.", "quellora-backend");
    app.formatter(std::make_shared<HelpFormatter>());
    app.failure_message(wrongUsage);
    app.set_version_flag("--version", "quellora-backend " QUELLORA_VERSION);
    app.require_subcommand(0, 1);
    // Options may precede or follow the command; the last of equal ones counts.
    app.fallthrough();
    app.option_defaults()->take_last()->disable_flag_override();

    app.add_option("--config", options.config,
                   "TOML file (default: $QUELLORA_BACKEND_CONFIG,\n"
                   "then $XDG_CONFIG_HOME/Quellora/backend.toml when present)")
        ->type_name("FILE");
    app.add_option("--data", options.data,
                   "SQLite file (default: $XDG_DATA_HOME/Quellora/backend.sqlite)")
        ->type_name("FILE");
    app.add_option("--database", options.database,
                   "sqlite:PATH or postgresql://…; before --data and the environment")
        ->type_name("ADDRESS");
    app.add_option("--host", options.host, "listen there (default 127.0.0.1)")
        ->type_name("ADDRESS");
    app.add_option("--port", options.port, "listen there (default 9878, 0 picks a free port)")
        ->type_name("N")
        ->transform(wholeNumber(65535));
    app.add_flag("--offline", options.offline, "ignore configured models");
    app.add_option("--cap", options.cap, "for create-account: tokens per calendar month")
        ->type_name("TOKENS")
        ->transform(wholeNumber(mostTokens));
    app.add_option("--plan", options.plan, "for create-account: the plan's name")
        ->type_name("NAME");
    app.add_flag("--password-stdin", options.passwordStdin,
                 "read the password from the first line of standard input");
    app.add_flag("--generate", options.generate, "make up a password and print it once");
    app.add_flag("--json", options.json, "for commands that list or create: print JSON");

    const auto add = [&](const char *name, const char *description, auto work) {
        CLI::App *command = app.add_subcommand(name, description)->group("Commands");
        command->set_help_flag();
        command->final_callback([&, work] {
            run = [&, work](const Config &config) { work(options, config, context); };
        });
        return command;
    };
    const auto addForEmail = [&](const char *name, const char *description, auto work) {
        CLI::App *command = add(name, description, work);
        command->add_option("EMAIL", options.email)->required()->transform(emailAddress());
        return command;
    };
    const auto addChange = [&](const char *name, const char *description, auto change) {
        return addForEmail(
            name, description,
            [&, name, change](const Options &, const Config &config, CommandContext &) {
                Store store(config);
                const auto done = change(store.actions, store.idOf(options.email));
                if (!done)
                    throw std::runtime_error(done.error());
                context.out << name << ": " << options.email << '\n';
            });
    };

    add("serve", "answer the app's requests until SIGINT or SIGTERM",
        [&](const Options &, const Config &config, CommandContext &) {
            status = serve(config, context);
        });
    add("ensure-account",
        "create the first account unless there is one (EMAIL: me@localhost);\n"
        "prints \"email: ...\" and, when created, \"password: ...\"",
        ensureAccount)
        ->add_option("EMAIL", options.email)
        ->transform(emailAddress());
    addForEmail("create-account", "add an account; password from --password-stdin or --generate",
                createAccount);
    addForEmail("set-password", "new password, same options; ends the account's sessions",
                setPassword);
    addChange("set-cap", "tokens per calendar month, 0 for no cap",
              [&](AdminActions &actions, std::int64_t id) {
                  return actions.setTokenCap(id, options.tokens);
              })
        ->add_option("TOKENS", options.tokens)
        ->required()
        ->transform(wholeNumber(mostTokens));
    addChange("set-plan", "the plan's name as the app shows it",
              [&](AdminActions &actions, std::int64_t id) {
                  return actions.setPlan(id, options.planName);
              })
        ->add_option("NAME", options.planName)
        ->required();
    addChange(
        "suspend", "refuse the account from now on",
        [](AdminActions &actions, std::int64_t id) { return actions.setSuspended(id, true); });
    addChange("resume", "accept it again", [](AdminActions &actions, std::int64_t id) {
        return actions.setSuspended(id, false);
    });
    addForEmail("sign-out", "end all its sessions", signOut);
    add("list-accounts", "accounts with this month's usage", listAccounts);
    add("migrate", "bring the store to this version's schema, as every start does", migrateStore);
    add("backup", "write the whole store to the new FILE, also while it is served", backUpStore)
        ->add_option("FILE", options.file)
        ->required();
    add("restore", "fill the empty store from a backup", restoreStore)
        ->add_option("FILE", options.file)
        ->required();
    CLI::App *copy = add("migrate-store",
                         "copy a store into an empty one (sqlite:PATH or\n"
                         "postgresql://…)",
                         copyBetweenStores);
    copy->add_option("FROM", options.from)->required();
    copy->add_option("TO", options.to)->required();
    addForEmail("export-person", "write everything of one person to the new FILE, as JSON",
                exportPerson)
        ->add_option("FILE", options.file)
        ->required();
    addChange("delete-person",
              "delete everything of one person; the audit trail knows a\n"
              "pseudonym only",
              [](AdminActions &actions, std::int64_t id) { return actions.remove(id); })
        ->alias("delete-account");
    add("check-config", "read the configuration and say what is in force", checkConfig);

    app.add_option("--days", options.days, "for usage: how many days (default 30)")
        ->type_name("N")
        ->check(CLI::Range(1, 400));
    app.add_option("--count", options.count, "for audit: how many entries (default 50)")
        ->type_name("N")
        ->check(CLI::Range(1, 100000));
    app.add_option("--action", options.action, "for audit: only this action")->type_name("NAME");
    app.add_option("--before", options.before, "for audit: only entries older than this one")
        ->type_name("ID")
        ->transform(wholeNumber(mostTokens));
    app.add_option("--title", options.title, "for send-message")->type_name("TEXT");
    app.add_option("--text", options.text, "for send-message, Markdown")->type_name("TEXT");
    app.add_option("--kind", options.kind, "for send-message: information or blocking")
        ->type_name("KIND")
        ->check(CLI::IsMember({"information", "blocking"}));
    app.add_option("--minutes", options.minutes, "for send-message: until a forced update")
        ->type_name("N")
        ->transform(wholeNumber(mostTokens));
    app.add_option("--label", options.label, "for send-message: caption of a button")
        ->type_name("TEXT");
    app.add_option("--url", options.url, "for send-message: what the button opens")
        ->type_name("URL");
    app.add_flag("--reset", options.reset, "for set-prompt: back to the configured prompt");
    addAdminCommands(app, options, context,
                     [&run](std::function<void(const Config &)> work) { run = std::move(work); });

    // App::help() would describe the given command only.
    const auto help = [&app] {
        return app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
    };
    try {
        // The library takes the words in reverse.
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
        if (!run) {
            context.err << help();
            return exitUsage;
        }
        run(loadConfig(options, context));
        return status;
    } catch (const CLI::CallForHelp &) {
        context.out << help();
        return exitSuccess;
    } catch (const CLI::Error &error) {
        return app.exit(error, context.out, context.err) == 0 ? exitSuccess : exitUsage;
    } catch (const std::runtime_error &failure) {
        context.err << "quellora-backend: " << failure.what() << '\n';
        return exitFailure;
    }
}

} // namespace quellora::server
