#include "cli/AdminCommands.h"

#include "admin/AdminActions.h"
#include "admin/ModelChoices.h"
#include "admin/QrCode.h"
#include "base/JsonAccess.h"
#include "base/Text.h"
#include "store/Connections.h"
#include "store/OpenDatabase.h"

#include <iomanip>
#include <istream>
#include <iterator>
#include <ostream>
#include <stdexcept>

namespace quellora::server {
namespace {

using Json = nlohmann::ordered_json;

/// The configured and the connected models, without setting them up.
std::vector<ModelSettings> listedModels(const Config &config)
{
    std::vector<ModelSettings> models = config.models;
    const auto connections = ConnectionFile(config.connectionFile()).load();
    if (!connections || !config.takesConnections)
        return models;
    for (const Connection &connection : *connections) {
        for (const ConnectedModel &connected : connection.models) {
            ModelSettings model;
            model.id = connected.name;
            model.displayName = connected.title;
            model.descriptor = connection.title;
            models.push_back(std::move(model));
        }
    }
    return models;
}

/// The store, opened for one command.
struct OpenStore
{
    explicit OpenStore(const Config &config)
        : hasher(config.security.passwordCost)
        , database(openDatabase(config))
        , store(config, *database, hasher, clock, [&config] { return listedModels(config); })
        , actions(store, "command line")
    {}

    Account account(const std::string &email)
    {
        const auto found = store.accounts.findByEmail(email);
        if (!found)
            throw std::runtime_error("there is no account " + email);
        return *found;
    }

    SystemClock clock;
    PasswordHasher hasher;
    std::unique_ptr<Database> database;
    AdminStore store;
    AdminActions actions;
};

template <typename Value>
Value orFail(tl::expected<Value, std::string> result)
{
    if (!result)
        throw std::runtime_error(result.error());
    if constexpr (!std::is_void_v<Value>)
        return *std::move(result);
}

std::string isoSeconds(std::int64_t seconds)
{
    return isoTime(TimePoint(std::chrono::seconds(seconds)));
}

void print(CommandContext &context, const Json &json)
{
    context.out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

std::string allOf(std::istream &input)
{
    return {std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
}

void addAdministrator(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    const ChosenPassword chosen = choosePassword(options, context.in);
    Enrolment enrolment;
    open.database->transaction([&] {
        enrolment = open.store.administrators.enrol(options.email, chosen.password);
        open.store.audit.add("command line", "add-administrator",
                             open.store.administrators.findByEmail(options.email)->name);
    });
    if (options.json) {
        Json json = {{"email", options.email},
                     {"uri", enrolment.uri},
                     {"recoveryCodes", enrolment.recoveryCodes}};
        if (chosen.generated)
            json["password"] = chosen.password;
        print(context, json);
        return;
    }
    context.out << "email: " << options.email << '\n';
    if (chosen.generated)
        context.out << "password: " << chosen.password << '\n';
    context.out << "\nScan this with an authenticator app:\n\n"
                << qrText(enrolment.uri) << "\nor open it there: " << enrolment.uri
                << "\n\nRecovery codes, each valid once instead of a code of the app:\n";
    for (const std::string &code : enrolment.recoveryCodes)
        context.out << "  " << code << '\n';
    context.out << "\nNone of this is shown again. Sign in at /admin.\n";
}

void listAdministrators(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    Json list = Json::array();
    for (const Administrator &administrator : open.store.administrators.all()) {
        list.push_back(
            {{"email", administrator.email},
             {"name", administrator.name},
             {"since", isoSeconds(administrator.createdAt)},
             {"recoveryCodesLeft", open.store.administrators.recoveryCodesLeft(administrator.id)}});
        if (!options.json)
            context.out << std::left << std::setw(32) << administrator.email << "  "
                        << administrator.name << '\n';
    }
    if (options.json)
        print(context, list);
}

void removeAdministrator(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    bool isRemoved = false;
    open.database->transaction([&] {
        const auto found = open.store.administrators.findByEmail(options.email);
        isRemoved = found && open.store.administrators.remove(options.email);
        if (isRemoved)
            open.store.audit.add("command line", "remove-administrator", found->name);
    });
    if (!isRemoved)
        throw std::runtime_error("there is no administrator " + options.email);
    context.out << "removed: " << options.email << '\n';
}

void invite(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    const auto existing = open.store.accounts.findByEmail(options.email);
    const ServiceSettings &service = open.store.config.service;
    const auto invited =
        existing && existing->isInvited
            ? orFail(open.actions.inviteAgain(existing->id))
            : orFail(open.actions.invite(options.email, options.plan.value_or(service.defaultPlan),
                                         options.cap.value_or(service.defaultTokenCap)));
    const std::string path = "/invite?token=" + invited.token;
    if (options.json)
        print(context, {{"email", options.email}, {"path", path}});
    else
        context.out << "email: " << options.email << "\nlink: the server's address and " << path
                    << "\nIt works once and for seven days.\n";
}

void usage(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    const TimePoint now = open.clock.now();
    const std::string first =
        isoTime(now - std::chrono::hours(24) * (options.days - 1)).substr(0, 10);
    const std::int64_t id = options.toEmail ? open.account(*options.toEmail).id : 0;
    std::map<std::int64_t, std::string> names;
    for (const Account &account : open.store.accounts.all())
        names[account.id] = account.email;
    Json list = Json::array();
    for (const DailyUsage &entry : open.store.usage.daily(first, isoTime(now).substr(0, 10), id)) {
        list.push_back({{"day", entry.day},
                        {"email", names[entry.accountId]},
                        {"model", entry.model},
                        {"queries", entry.queries},
                        {"inputTokens", entry.tokens.input},
                        {"outputTokens", entry.tokens.output}});
        if (!options.json)
            context.out << entry.day << "  " << std::left << std::setw(32) << names[entry.accountId]
                        << "  " << std::setw(24) << entry.model << "  " << entry.queries
                        << " queries, " << entry.tokens.input << " in, " << entry.tokens.output
                        << " out\n";
    }
    if (options.json)
        print(context, list);
}

void sendMessage(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    AdminMessage message;
    message.type = options.kind == "blocking" ? "BLOCKING" : "INFORMATIONAL";
    message.headerText = options.title;
    message.bodyMarkdown = options.text;
    message.actionLabel = options.label;
    message.actionUrl = options.url;
    message.forceUpdateInMinutes = options.minutes;
    std::optional<std::int64_t> id;
    if (options.toEmail)
        id = open.account(*options.toEmail).id;
    const std::string sent = orFail(open.actions.sendMessage(message, id));
    if (options.json)
        print(context, {{"id", sent}});
    else
        context.out << "message: " << sent << '\n';
}

void listMessages(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    std::map<std::int64_t, std::string> names;
    for (const Account &account : open.store.accounts.all())
        names[account.id] = account.email;
    Json list = Json::array();
    for (const StoredMessage &stored : open.store.messages.all()) {
        const AdminMessage &message = stored.message;
        const std::string to = stored.accountId ? names[*stored.accountId] : "everybody";
        Json entry = {{"id", message.id},
                      {"to", to},
                      {"type", message.type},
                      {"headerText", message.headerText},
                      {"bodyMarkdown", message.bodyMarkdown},
                      {"sentAt", isoSeconds(stored.createdAt / 1000)}};
        if (message.actionLabel)
            entry["actionLabel"] = *message.actionLabel;
        if (message.actionUrl)
            entry["actionUrl"] = *message.actionUrl;
        if (message.forceUpdateInMinutes)
            entry["forceUpdateInMinutes"] = *message.forceUpdateInMinutes;
        if (stored.withdrawnAt != 0)
            entry["withdrawnAt"] = isoSeconds(stored.withdrawnAt / 1000);
        list.push_back(entry);
        if (!options.json)
            context.out << message.id << "  " << message.type << "  to " << to
                        << (stored.withdrawnAt == 0 ? "" : "  (withdrawn)") << "  "
                        << message.headerText << '\n';
    }
    if (options.json)
        print(context, list);
}

void listModels(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    const auto all = open.store.models();
    const ModelChoices choices = modelChoices(open.store.settings, open.store.config.service, all,
                                              open.store.config.defaultModel);
    Json list = Json::array();
    for (const ModelSettings &model : all) {
        const bool isDefault = model.id == choices.defaultModel;
        list.push_back({{"id", model.id},
                        {"displayName", model.displayName},
                        {"offered", choices.offers(model.id)},
                        {"default", isDefault}});
        if (!options.json)
            context.out << model.id << (isDefault ? "  (default)" : "")
                        << (choices.offers(model.id) ? "" : "  (not offered)") << '\n';
    }
    if (options.json)
        print(context, list);
}

void offerModels(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    const auto all = open.store.models();
    std::string hidden;
    for (const std::string &wanted : options.models) {
        if (std::none_of(all.begin(), all.end(),
                         [&](const ModelSettings &model) { return model.id == wanted; }))
            throw std::runtime_error("there is no model " + wanted);
    }
    for (const ModelSettings &model : all) {
        if (std::find(options.models.begin(), options.models.end(), model.id) ==
            options.models.end())
            hidden += (hidden.empty() ? "" : "\n") + model.id;
    }
    open.database->transaction([&] {
        orFail(open.actions.set(settingNames::hiddenModels,
                                hidden.empty() ? std::nullopt : std::optional(hidden)));
        orFail(open.actions.set(settingNames::defaultModel, options.models.front()));
    });
    listModels(options, open, context);
}

void showPrompt(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    const std::string prompt = open.store.settings.get(settingNames::defaultPrompt)
                                   .value_or(open.store.config.service.defaultPrompt);
    if (options.json)
        print(context, {{"defaultPrompt", prompt}});
    else
        context.out << prompt << '\n';
}

void setPrompt(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    std::optional<std::string> prompt;
    if (!options.reset) {
        prompt = trimmed(allOf(context.in));
        if (prompt->empty())
            throw std::runtime_error("the default prompt must not be empty");
    }
    orFail(open.actions.set(settingNames::defaultPrompt, prompt));
    showPrompt(options, open, context);
}

void listLogs(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    const std::int64_t id = options.toEmail ? open.account(*options.toEmail).id : 0;
    std::map<std::int64_t, std::string> names;
    for (const Account &account : open.store.accounts.all())
        names[account.id] = account.email;
    Json list = Json::array();
    for (const UploadedLog &log : open.store.logs.list(id)) {
        list.push_back({{"id", log.id},
                        {"email", names[log.accountId]},
                        {"receivedAt", isoSeconds(log.receivedAt)},
                        {"bytes", log.bytes}});
        if (!options.json)
            context.out << std::setw(8) << log.id << "  " << isoSeconds(log.receivedAt) << "  "
                        << names[log.accountId] << "  " << log.bytes << " bytes\n";
    }
    if (options.json)
        print(context, list);
}

void audit(const CommandOptions &options, OpenStore &open, CommandContext &context)
{
    AuditFilter filter{"", options.action, options.before};
    if (options.toEmail) {
        const auto administrator = open.store.administrators.findByEmail(*options.toEmail);
        filter.person = administrator ? administrator->name : open.account(*options.toEmail).person;
    }
    Json list = Json::array();
    for (const AuditEntry &entry : open.store.audit.list(options.count, filter)) {
        list.push_back({{"id", entry.id},
                        {"at", isoSeconds(entry.at)},
                        {"actor", entry.actor},
                        {"action", entry.action},
                        {"subject", entry.subject},
                        {"detail", entry.detail}});
        if (!options.json)
            context.out << isoSeconds(entry.at) << "  " << entry.actor << "  " << entry.action
                        << "  " << entry.subject << (entry.detail.empty() ? "" : "  ")
                        << entry.detail << '\n';
    }
    if (options.json)
        print(context, list);
}

} // namespace

void addAdminCommands(CLI::App &app, CommandOptions &options, CommandContext &context,
                      const std::function<void(std::function<void(const Config &)>)> &choose)
{
    const auto add = [&](CLI::App &parent, const char *name, const char *description, auto work) {
        CLI::App *command = parent.add_subcommand(name, description);
        command->group("Administration");
        command->set_help_flag();
        command->final_callback([&options, &context, choose, work] {
            choose([&options, &context, work](const Config &config) {
                OpenStore open(config);
                work(options, open, context);
            });
        });
        return command;
    };
    const auto addForEmail = [&](CLI::App &parent, const char *name, const char *description,
                                 auto work) {
        CLI::App *command = add(parent, name, description, work);
        command->add_option("EMAIL", options.email)->required()->transform(emailAddress());
        return command;
    };
    const auto addAbout = [&](const char *name, const char *description, auto work) {
        CLI::App *command = add(app, name, description, work);
        command->add_option("EMAIL", options.toEmail)->transform(emailAddress());
        return command;
    };

    CLI::App *administrators =
        app.add_subcommand("admin", "administrators: admin add EMAIL, admin remove EMAIL,\n"
                                    "admin list");
    administrators->group("Administration");
    administrators->set_help_flag();
    administrators->require_subcommand(1);
    administrators->fallthrough();
    addForEmail(*administrators, "add", "add one or renew password and second factor",
                addAdministrator);
    addForEmail(*administrators, "remove", "remove one", removeAdministrator);
    add(*administrators, "list", "list them", listAdministrators);

    addForEmail(app, "invite", "account with a link for its first password (--cap, --plan)",
                invite);
    addAbout("usage", "usage by day, person and model (--days N)", usage);
    addAbout("send-message",
             "message to all or one: --title, --text, --kind blocking,\n"
             "--minutes N for a forced update, --label and --url for a button",
             sendMessage);
    add(app, "list-messages", "all messages", listMessages);
    add(app, "withdraw-message", "show it no longer",
        [](const CommandOptions &given, OpenStore &open, CommandContext &out) {
            orFail(open.actions.withdrawMessage(given.id));
            out.out << "withdrawn: " << given.id << '\n';
        })
        ->add_option("ID", options.id)
        ->required();
    add(app, "list-models", "the models and which are offered", listModels);
    add(app, "offer-models", "offer only these models; the first is the default", offerModels)
        ->add_option("MODEL", options.models)
        ->required();
    add(app, "show-prompt", "the default prompt", showPrompt);
    add(app, "set-prompt", "default prompt from standard input; --reset for the configured one",
        setPrompt);
    addAbout("list-logs", "uploaded logs", listLogs);
    add(app, "read-log", "print an uploaded log",
        [](const CommandOptions &given, OpenStore &open, CommandContext &out) {
            out.out << orFail(open.actions.readLog(given.tokens));
        })
        ->add_option("NUMBER", options.tokens)
        ->required()
        ->transform(wholeNumber(mostTokens));
    addAbout("audit", "the audit trail, newest first (--count N, --action NAME, --before ID)",
             audit);
}

} // namespace quellora::server
