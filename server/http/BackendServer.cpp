#include "http/BackendServer.h"

#include "base/JsonAccess.h"
#include "base/Log.h"
#include "http/LoopbackPeer.h"
#include "http/Replies.h"
#include "store/Changes.h"

namespace quellora::server {
namespace {

constexpr std::size_t smallBody = 64U * 1024U;
/// How long answers that were told to end may take for it.
constexpr std::chrono::seconds endOfAnswers(3);

HttpLimits limitsOf(const Config &config)
{
    HttpLimits limits;
    limits.idle = config.timing.idle;
    limits.connections = config.limits.connections;
    limits.connectionsPerPeer = config.limits.connectionsPerPeer;
    limits.proxies = config.server.trustedProxies;
    // A proxy on the same machine need not be named.
    limits.proxies.add("127.0.0.1");
    limits.proxies.add("::1");
    return limits;
}

} // namespace

BackendServer::BackendServer(Config config, Database &database, const PasswordHasher &hasher,
                             const Clock &clock, OwnUserCheck ownUser)
    : m_services(std::move(config), database, hasher, clock,
                 ownUser ? std::move(ownUser) : OwnUserCheck([](const Request &r) {
                     return peerIsOwnUser(r.peerAddress, r.peerPort, r.localPort);
                 }))
    , m_guard(m_services)
    , m_auth(m_services)
    , m_query(m_services)
    , m_uploads(m_services)
    , m_pages(m_services)
    , m_account(m_services)
    , m_operation(m_services)
    , m_team(m_services, hasher)
    , m_http({m_router, m_services.loops, m_services.workers, m_services.passwordWorkers,
              m_services.metrics, limitsOf(m_services.config)})
{
    hasher.verifyNobody("");
    registerRoutes();
}

BackendServer::~BackendServer()
{
    if (!m_isStopped)
        stop();
}

void BackendServer::page(const std::string &path, Handler handler)
{
    m_router.get(path,
                 [this, handler = std::move(handler)](const Request &request, Response &response) {
                     if (m_guard.hostAllowed(request, response))
                         handler(request, response);
                 });
}

void BackendServer::post(const std::string &path, std::size_t limit, Handler handler, Lane lane)
{
    m_router.post(
        path, limit,
        [this, handler = std::move(handler)](const Request &request, Response &response) {
            if (m_guard.hostAllowed(request, response) && m_guard.originAllowed(request, response))
                handler(request, response);
        },
        lane);
}

void BackendServer::registerRoutes()
{
    const LimitSettings &limits = m_services.config.limits;
    post(
        "/api/auth/app-login", smallBody,
        [this](const auto &request, auto &response) { m_auth.login(request, response); },
        Lane::Passwords);
    post("/api/auth/app-verify", smallBody,
         [this](const auto &request, auto &response) { m_auth.verify(request, response); });
    post("/api/proxy/query", limits.queryBytes,
         [this](const auto &request, auto &response) { m_query.query(request, response); });
    post("/api/telemetry/query", smallBody,
         [this](const auto &request, auto &response) { m_uploads.telemetry(request, response); });
    post("/api/logs/app", limits.logBytes,
         [this](const auto &request, auto &response) { m_uploads.logs(request, response); });
    post(
        "/login", smallBody,
        [this](const auto &request, auto &response) { m_pages.loginSubmit(request, response); },
        Lane::Passwords);
    page("/login",
         [this](const auto &request, auto &response) { m_pages.loginPage(request, response); });
    page("/account",
         [this](const auto &request, auto &response) { m_account.overview(request, response); });
    page("/account/connect",
         [this](const auto &request, auto &response) { m_account.setupPage(request, response); });
    for (const auto &[path, action] : {std::pair("/account/connect", &AccountRoutes::connect),
                                       std::pair("/account/connect/models", &AccountRoutes::choose),
                                       std::pair("/account/change", &AccountRoutes::change)}) {
        post(path, smallBody, [this, action = action](const auto &request, auto &response) {
            (m_account.*action)(request, response);
        });
    }
    for (const std::string path :
         {"/", "/account/billing", "/reset-password", "/signup", "/pricing", "/help"}) {
        page(path,
             [this, path](const auto &, auto &response) { m_pages.fixedPage(path, response); });
    }
    m_team.addTo(
        [this](const std::string &path, Handler handler) { page(path, std::move(handler)); },
        [this](const std::string &path, Handler handler, bool checksPassword) {
            post(path, smallBody, std::move(handler),
                 checksPassword ? Lane::Passwords : Lane::Requests);
        });
    page("/style.css", [](const auto &, auto &response) { PageRoutes::styleSheet(response); });
    // Load balancers ask under whatever name they know the server by.
    const auto probe = [this](const std::string &path, auto method, Lane lane = Lane::Requests) {
        m_router.get(
            path,
            [this, method](const Request &request, Response &response) {
                (m_operation.*method)(request, response);
            },
            lane);
    };
    // A server that has much to do must not be taken for a dead one.
    probe("/livez", &OperationRoutes::live, Lane::Immediate);
    probe("/readyz", &OperationRoutes::ready);
    probe("/metrics", &OperationRoutes::metrics);
    page("/openapi.json",
         [this](const auto &request, auto &response) { m_operation.contract(request, response); });
    page("/healthz", [this](const auto &, auto &response) {
        replyJson(response, 200,
                  compactJson(
                      {{"status", "ok"}, {"model", m_services.models.current()->defaultModel()}}));
    });
}

tl::expected<int, std::string> BackendServer::bind()
{
    const ServerSettings &server = m_services.config.server;
    m_changes =
        std::make_unique<ChangeFeed>(m_services.database, m_services.clock,
                                     m_services.config.postgres, [this](const std::string &topic) {
                                         if (const auto account = topics::accountOf(topic))
                                             m_query.accountChanged(account);
                                     });
    const auto port = m_http.listen(server.host, server.port);
    if (!port)
        return tl::make_unexpected("cannot listen on " + server.host + " port " +
                                   std::to_string(server.port) + ": is it taken?");
    m_port = *port;
    return m_port;
}

std::string BackendServer::address() const
{
    const std::string &host = m_services.config.server.host;
    const bool v6 = host.find(':') != std::string::npos;
    return "http://" + (v6 ? "[" + host + "]" : host) + ":" + std::to_string(m_port);
}

std::string BackendServer::models() const
{
    const auto catalog = m_services.models.current();
    std::string text;
    for (const ModelSettings &model : catalog->models())
        text += (text.empty() ? "" : ", ") + model.id;
    return text + ", default " + catalog->defaultModel();
}

void BackendServer::run()
{
    m_stopped.get_future().wait();
}

void BackendServer::stop()
{
    m_isStopped = true;
    m_services.stopping.requestStop();
    m_account.stop();
    m_http.beginStop();
    if (!m_services.streams.waitForNone(m_services.config.timing.stopGrace))
        Log::event("[BackendServer] Ending the answers that still run");
    m_http.endStreams();
    if (!m_services.streams.waitForNone(endOfAnswers))
        Log::event("[BackendServer] WARNING: some answers did not end in time");
    m_changes.reset();
    m_http.closeAll();
    m_services.workers.stop();
    m_services.passwordWorkers.stop();
    m_services.answerWorkers.stop();
    m_account.finish();
    // Takes the replies of the last handlers, whose connections are closed.
    m_http.closeAll();
    m_services.loops.stop();
    m_stopped.set_value();
}

} // namespace quellora::server
