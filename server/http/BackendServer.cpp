#include "http/BackendServer.h"

#include "base/JsonAccess.h"
#include "base/Log.h"
#include "http/LoopbackPeer.h"
#include "http/Replies.h"

#include <sys/socket.h>

#include <thread>

namespace quellora::server {
namespace {

constexpr std::size_t smallBody = 64U * 1024U;
constexpr std::chrono::seconds readTimeout(15);
constexpr std::chrono::seconds writeTimeout(30);

/// What the thread serves now, for the log and the counters.
struct Served
{
    /// As registered, never the address, which may contain a token.
    std::string route = "other";
    std::string id;
    std::chrono::steady_clock::time_point begun;
    std::optional<LoggedRequest> logged;
};

thread_local Served served;

void begin(const httplib::Request &request)
{
    served.route = "other";
    served.id = LoggedRequest::idFor(request.get_header_value("X-Request-Id"));
    served.begun = std::chrono::steady_clock::now();
    served.logged.emplace(served.id);
}

void end(Metrics &metrics, const std::string &method, int status)
{
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - served.begun;
    metrics.requests.add({served.route, std::to_string(status)});
    Log::request(method, served.route, status, time.count());
    served.logged.reset();
}

/// Counts the connections that wait for a thread and those that have one.
class CountingPool final : public httplib::ThreadPool
{
public:
    CountingPool(std::size_t threads, std::atomic<std::size_t> &waiting, Metrics &metrics)
        : ThreadPool(threads), m_waiting(waiting), m_metrics(metrics)
    {}
    void enqueue(std::function<void()> job) override
    {
        ++m_waiting;
        ThreadPool::enqueue([this, job = std::move(job)] {
            --m_waiting;
            ++m_metrics.connections;
            job();
            --m_metrics.connections;
        });
    }

private:
    std::atomic<std::size_t> &m_waiting;
    Metrics &m_metrics;
};

Request requestOf(const httplib::Request &from, int localPort)
{
    Request request;
    request.method = from.method;
    request.path = from.path;
    for (const auto &[name, value] : from.params)
        request.parameters.emplace(name, value);
    for (const auto &[name, value] : from.headers)
        request.headers.add(name, value);
    request.peerAddress = from.remote_addr;
    request.peerPort = from.remote_port;
    request.localPort = localPort;
    request.id = served.id;
    return request;
}

void send(Response &&from, httplib::Response &to)
{
    to.status = from.status;
    const std::string type = from.headers.value("Content-Type");
    for (const auto &[name, value] : from.headers) {
        if (name != "Content-Type")
            to.set_header(name.c_str(), value);
    }
    if (from.stream) {
        to.set_chunked_content_provider(
            type, [stream = std::move(from.stream)](std::size_t, httplib::DataSink &sink) {
                BodySink body{[&sink](std::string_view bytes) {
                                  return sink.write(bytes.data(), bytes.size());
                              },
                              [&sink] { sink.done(); }};
                return stream(body);
            });
    } else if (!type.empty()) {
        to.set_content(std::move(from.body), type.c_str());
    }
}

/// Reads a request body of up to @p limit bytes. False, with a 413 or 400 reply, when that fails.
/// A longer body is read to its end, because the client reads the reply only then.
bool readBody(const httplib::ContentReader &reader, const httplib::Response &to, std::size_t limit,
              std::string &body, Response &response)
{
    bool isTooLong = false;
    const bool complete = reader([&](const char *data, std::size_t length) {
        isTooLong = isTooLong || body.size() + length > limit;
        if (isTooLong)
            std::string().swap(body);
        else
            body.append(data, length);
        return true;
    });
    if (complete && !isTooLong)
        return true;
    // The library itself sets 413 when Content-Length exceeds the limit of all routes.
    isTooLong = isTooLong || to.status == 413;
    replyError(response, isTooLong ? 413 : 400,
               isTooLong ? "the body is too long" : "the body could not be read");
    return false;
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
    , m_operation(m_services, m_waiting)
    , m_team(m_services, hasher)
{
    hasher.verifyNobody("");
    configure();
    registerRoutes();
}

void BackendServer::configure()
{
    const std::size_t threads = m_services.config.server.threads;
    m_server.new_task_queue = [this, threads] {
        return new CountingPool(threads, m_waiting, m_services.metrics);
    };
    m_server.set_pre_routing_handler([](const httplib::Request &request, httplib::Response &) {
        begin(request);
        return httplib::Server::HandlerResponse::Unhandled;
    });
    m_server.set_post_routing_handler([](const httplib::Request &, httplib::Response &response) {
        response.set_header("X-Request-Id", served.id);
    });
    m_server.set_logger([this](const httplib::Request &request, const httplib::Response &response) {
        end(m_services.metrics, request.method, response.status);
    });
    // One request per connection: an idle kept-alive connection would occupy a thread, and the
    // unread body of a rejected request could be parsed as the next request.
    m_server.set_keep_alive_max_count(1);
    m_server.set_read_timeout(readTimeout);
    m_server.set_write_timeout(writeTimeout);
    m_server.set_tcp_nodelay(true);
    m_server.set_payload_max_length(
        std::max(m_services.config.limits.queryBytes, m_services.config.limits.logBytes));
    // The library's default (SO_REUSEPORT) lets two servers share a port.
    m_server.set_socket_options([](socket_t socket) {
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    m_server.set_default_headers({{"X-Content-Type-Options", "nosniff"},
                                  {"Referrer-Policy", "same-origin"},
                                  {"Cross-Origin-Resource-Policy", "same-origin"}});
    m_server.set_exception_handler(
        [](const httplib::Request &, httplib::Response &response, std::exception_ptr problem) {
            std::string reason = "unknown";
            try {
                std::rethrow_exception(problem);
            } catch (const DatabaseError &error) {
                reason = error.what();
            } catch (const std::exception &error) {
                reason = typeid(error).name();
            } catch (...) {
                reason = "not an exception object";
            }
            Log::event("[BackendServer] ERROR: request failed: " + reason);
            Response reply;
            replyError(reply, 500, "internal error");
            send(std::move(reply), response);
        });
    m_server.set_error_handler([](const httplib::Request &, httplib::Response &response) {
        if (!response.body.empty())
            return;
        Response reply;
        replyError(reply, response.status, "HTTP " + std::to_string(response.status));
        send(std::move(reply), response);
    });
}

void BackendServer::page(const std::string &path, Handler handler)
{
    m_server.Get(path, [this, path, handler = std::move(handler)](const httplib::Request &from,
                                                                  httplib::Response &to) {
        served.route = path;
        const Request request = requestOf(from, m_port);
        Response response;
        if (m_guard.hostAllowed(request, response))
            handler(request, response);
        send(std::move(response), to);
    });
}

void BackendServer::post(const std::string &path, std::size_t limit, Handler handler)
{
    m_server.Post(path, [this, path, limit, handler = std::move(handler)](
                            const httplib::Request &from, httplib::Response &to,
                            const httplib::ContentReader &reader) {
        served.route = path;
        Request request = requestOf(from, m_port);
        Response response;
        const bool isRead = readBody(reader, to, limit, request.body, response);
        if (isRead && m_guard.hostAllowed(request, response) &&
            m_guard.originAllowed(request, response))
            handler(request, response);
        send(std::move(response), to);
    });
}

void BackendServer::registerRoutes()
{
    const LimitSettings &limits = m_services.config.limits;
    post("/api/auth/app-login", smallBody,
         [this](const auto &request, auto &response) { m_auth.login(request, response); });
    post("/api/auth/app-verify", smallBody,
         [this](const auto &request, auto &response) { m_auth.verify(request, response); });
    post("/api/proxy/query", limits.queryBytes,
         [this](const auto &request, auto &response) { m_query.query(request, response); });
    post("/api/telemetry/query", smallBody,
         [this](const auto &request, auto &response) { m_uploads.telemetry(request, response); });
    post("/api/logs/app", limits.logBytes,
         [this](const auto &request, auto &response) { m_uploads.logs(request, response); });
    post("/login", smallBody,
         [this](const auto &request, auto &response) { m_pages.loginSubmit(request, response); });
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
        [this](const std::string &path, Handler handler, bool) {
            post(path, smallBody, std::move(handler));
        });
    page("/style.css", [](const auto &, auto &response) { PageRoutes::styleSheet(response); });
    // Load balancers ask under whatever name they know the server by.
    const auto probe = [this](const std::string &path, auto method) {
        m_server.Get(path,
                     [this, path, method](const httplib::Request &from, httplib::Response &to) {
                         served.route = path;
                         Response response;
                         (m_operation.*method)(requestOf(from, m_port), response);
                         send(std::move(response), to);
                     });
    };
    probe("/livez", &OperationRoutes::live);
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
    if (server.port == 0) {
        m_port = m_server.bind_to_any_port(server.host);
    } else {
        m_port = m_server.bind_to_port(server.host, server.port) ? server.port : -1;
    }
    if (m_port <= 0)
        return tl::make_unexpected("cannot listen on " + server.host + " port " +
                                   std::to_string(server.port) + ": is it taken?");
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
    m_server.listen_after_bind();
    m_finished = true;
}

void BackendServer::stop()
{
    m_services.stopping.requestStop();
    m_account.stop();
    if (!m_services.streams.waitForNone(m_services.config.timing.stopGrace))
        Log::event("[BackendServer] WARNING: some answers did not end in time");
    // httplib::Server::stop() has no effect before its loop runs.
    while (!m_server.is_running() && !m_finished)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_server.stop();
}

} // namespace quellora::server
