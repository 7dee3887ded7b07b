#include "http/AccountRoutes.h"

#include "base/Log.h"
#include "base/Text.h"
#include "http/AccountText.h"
#include "http/PageReplies.h"

#include <algorithm>

namespace quellora::server {
namespace {

constexpr std::chrono::milliseconds probeTime(600);
/// How long a submission waits for a quick result before the page says that it is waiting.
constexpr std::chrono::milliseconds quickResult(1200);
constexpr std::size_t longestKey = 512;
constexpr std::size_t longestAddress = 300;
constexpr const char *setupPath = "/account/connect";
constexpr const char *accountPath = "/account";

/// Whether @p key can stand in a header.
bool isKey(const std::string &key)
{
    return key.size() <= longestKey &&
           std::all_of(key.begin(), key.end(), [](char c) { return c > 0x20 && c < 0x7F; });
}

/// Removes @p ending from @p text.
void chop(std::string &text, std::string_view ending)
{
    if (text.size() > ending.size() && text.ends_with(ending))
        text.resize(text.size() - ending.size());
}

/// The base address that was meant by @p text: people paste it without its scheme or with the path
/// of an endpoint.
std::string meantAddress(const std::string &text)
{
    std::string address = trimmed(text);
    if (address.find("://") == std::string::npos) {
        const std::string host = hostOfUrl("http://" + address);
        const bool isNumber =
            host.find_first_not_of("0123456789.") == std::string::npos || host.front() == '[';
        const bool isNear = isNumber || host.find('.') == std::string::npos ||
                            host.ends_with(".local") || host.ends_with(".lan");
        address = (isNear ? "http://" : "https://") + address;
    }
    while (!address.empty() && address.back() == '/')
        address.pop_back();
    for (const std::string_view endpoint : {"/chat/completions", "/models", "/v1"})
        chop(address, endpoint);
    return address;
}

/// Whether the address @p url names a host and at most a number as its port.
bool hasServer(const std::string &url)
{
    const std::string host = hostOfUrl(url);
    const std::size_t begin = url.find("://") + 3;
    const std::string rest = lowered(url.substr(begin, url.find('/', begin) - begin));
    const std::string port = rest.substr(std::min(host.size(), rest.size()));
    return !host.empty() &&
           host.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-_:[]") ==
               std::string::npos &&
           (port.empty() ||
            (port.size() <= 6 && port.find_first_not_of("0123456789", 1) == std::string::npos)) &&
           std::all_of(url.begin(), url.end(), [](char c) { return c > 0x20 && c < 0x7F; });
}

} // namespace

AccountRoutes::AccountRoutes(Services &services)
    : m_services(services)
    , m_guard(services)
    , m_nonces(services.database, services.clock, "account")
    , m_setup(services.config, services.models, services.loops, services.answerWorkers)
{}

void AccountRoutes::notify(std::string notice)
{
    const std::lock_guard lock(m_noticeMutex);
    m_notice = std::move(notice);
}

void AccountRoutes::showOverview(const Request &request, Response &response, int status,
                                 const std::string &problem, const Entered &entered)
{
    AccountView view;
    view.nonce = m_nonces.issue();
    view.problem = problem.empty() ? m_services.models.problem() : problem;
    view.enteredChoice = entered.choice;
    view.enteredAddress = entered.address;
    view.isOffline = !m_services.config.takesConnections;
    if (!m_services.config.hasOnlyFallback())
        view.configured = m_services.config.models;
    view.connections = m_services.models.connections();
    view.choices = connectChoices(m_services.config);
    // Other sites can make the browser load this address as a picture or the like.
    const std::string purpose = request.header("Sec-Fetch-Dest");
    if (!view.isOffline && (purpose.empty() || purpose == "document"))
        view.local = answeringLocalServers(m_services.config, m_services.loops.next(), probeTime,
                                           m_services.stopping.token());
    {
        const std::lock_guard lock(m_noticeMutex);
        view.notice = std::exchange(m_notice, {});
    }
    replyPage(response, status, accountBody(view));
}

void AccountRoutes::overview(const Request &request, Response &response)
{
    if (m_guard.isOwner(request))
        showOverview(request, response, 200, "");
    else
        replyPage(response, 200, foreignAccountBody());
}

void AccountRoutes::setupPage(const Request &request, Response &response)
{
    const SetupView view = m_setup.view();
    if (!m_guard.isOwner(request) || view.phase == SetupView::Phase::None) {
        replySeeOther(response, accountPath);
        return;
    }
    const bool isBusy = view.phase != SetupView::Phase::Choosing;
    replyPage(response, 200, setupBody(view), FormTargets::OwnPages, isBusy);
}

bool AccountRoutes::admitted(const Request &request, Response &response, const Fields &fields,
                             bool wantsNonce)
{
    if (!m_guard.isOwner(request)) {
        replyPage(response, 403, foreignAccountBody());
        return false;
    }
    if (wantsNonce && !m_nonces.consume(field(fields, "nonce"))) {
        showOverview(request, response, 400, "This page has expired. Please try again.",
                     {field(fields, "choice"), field(fields, "address")});
        return false;
    }
    return true;
}

void AccountRoutes::connect(const Request &request, Response &response)
{
    const Fields fields = formFields(request.body);
    if (!admitted(request, response, fields, true))
        return;
    const Entered entered{field(fields, "choice"), field(fields, "address")};
    const auto refuse = [&](const std::string &problem) {
        showOverview(request, response, 400, problem, entered);
    };
    if (!m_services.config.takesConnections) {
        refuse("This backend works offline.");
        return;
    }
    Connection fresh;
    fresh.apiKey = trimmed(field(fields, "key"));
    for (const ConfiguredProvider &provider : m_services.config.providers) {
        if (!provider.connector)
            continue;
        for (const ConnectChoice &choice : provider.connector->choices) {
            if (choice.id != entered.choice)
                continue;
            fresh.provider = provider.name;
            fresh.title = choice.title;
            fresh.baseUrl = choice.baseUrl;
            if (choice.baseUrl.empty()) {
                fresh.baseUrl = meantAddress(entered.address);
                fresh.title = hostOfUrl(fresh.baseUrl);
            }
            if (choice.needsKey && fresh.apiKey.empty()) {
                refuse("Paste the key first.");
                return;
            }
        }
    }
    if (fresh.provider.empty()) {
        refuse("Choose what to connect.");
    } else if (!isKey(fresh.apiKey)) {
        refuse("That is no key: it contains spaces or letters that no key has, or is too long.");
    } else if (entered.address.size() > longestAddress || !isHttpUrl(fresh.baseUrl) ||
               !hasServer(fresh.baseUrl)) {
        refuse("That is no address of a server. It looks like https://api.example.com/v1.");
    } else if (m_setup.begin(fresh, std::nullopt)) {
        m_setup.waitWhileBusy(quickResult);
        replySeeOther(response, setupPath);
    }
}

void AccountRoutes::choose(const Request &request, Response &response)
{
    const Fields fields = formFields(request.body);
    if (!admitted(request, response, fields, false))
        return;
    const std::string id = field(fields, "setup");
    const std::string action = field(fields, "action");
    const SetupView view = m_setup.view();
    // The id is known to the page only, so it also proves where the submission comes from.
    if (view.phase == SetupView::Phase::None || view.id != id) {
        showOverview(request, response, 400,
                     "This page has expired: something else is being connected, or the backend "
                     "was started again.");
        return;
    }
    if (action == "apply" || action == "test" || action == "save") {
        SetupInput input;
        for (std::size_t i = 0; i < view.rows.size(); ++i) {
            if (fields.contains(std::string("m").append(std::to_string(i))))
                input.ticked.push_back(i);
        }
        input.name = field(fields, "name");
        input.filter = field(fields, "filter");
        m_setup.enter(id, input);
    }
    if (action == "save" && m_setup.save(id)) {
        const auto catalog = m_services.models.current();
        const auto &models = catalog->models();
        const auto answering =
            std::find_if(models.begin(), models.end(), [&](const ModelSettings &model) {
                return model.id == catalog->defaultModel();
            });
        const bool isNew = std::any_of(view.rows.begin(), view.rows.end(), [&](const auto &row) {
            return row.model.name == answering->upstream && view.title == answering->descriptor;
        });
        notify(isNew ? "Saved. " + answering->displayName +
                           " answers from now on, unless you pick another model in the app."
                     : "Saved. The models are in the app's model list now.");
        replySeeOther(response, accountPath);
        return;
    }
    if (action == "cancel") {
        m_setup.cancel(id);
        replySeeOther(response, accountPath);
        return;
    }
    if (action == "test")
        m_setup.test(id);
    else if (action == "stop")
        m_setup.stopTest(id);
    else if (action == "retry")
        m_setup.listAgain(id);
    if (action == "test" || action == "retry")
        m_setup.waitWhileBusy(quickResult);
    replySeeOther(response, setupPath);
}

void AccountRoutes::change(const Request &request, Response &response)
{
    const Fields fields = formFields(request.body);
    if (!admitted(request, response, fields, true))
        return;
    const std::vector<Connection> all = m_services.models.connections();
    const auto found = std::find_if(all.begin(), all.end(), [&](const Connection &connection) {
        return connection.provider == field(fields, "provider") &&
               connection.baseUrl == field(fields, "address");
    });
    if (found == all.end()) {
        showOverview(request, response, 404, "That connection is not there any more.");
        return;
    }
    if (field(fields, "action") == "disconnect") {
        disconnect(response, *found);
        return;
    }
    if (!m_setup.begin(*found, *found)) {
        showOverview(request, response, 400, "This backend knows no such provider any more.");
        return;
    }
    m_setup.waitWhileBusy(quickResult);
    replySeeOther(response, setupPath);
}

void AccountRoutes::disconnect(Response &response, const Connection &connection)
{
    std::vector<Connection> rest = m_services.models.connections();
    std::erase(rest, connection);
    if (const auto why = m_services.models.replace(std::move(rest))) {
        notify("Not disconnected: " + *why);
    } else {
        Log::event("[AccountRoutes] Disconnected " + hostOfUrl(connection.baseUrl));
        notify(connection.title + " is disconnected and its key deleted.");
    }
    replySeeOther(response, accountPath);
}

} // namespace quellora::server
