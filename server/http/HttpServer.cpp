#include "http/HttpServer.h"

#include "base/Log.h"
#include "http/HttpConnection.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <map>
#include <mutex>

namespace quellora::server {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using ErrorCode = boost::system::error_code;

/// How long accepting pauses when there is no room for another connection.
constexpr std::chrono::milliseconds fullPause(50);

} // namespace

/// Accepts connections on the first loop and hands them to all loops in turn. (One listening
/// socket each, with SO_REUSEPORT, would let a second server take the port.)
class HttpServer::Listener : public std::enable_shared_from_this<Listener>
{
public:
    explicit Listener(HttpContext context)
        : m_context(std::move(context))
        , m_loop(m_context.loops.at(0))
        , m_acceptor(m_loop.context())
        , m_pause(m_loop.context())
    {}

    tl::expected<int, std::string> listen(const std::string &host, int port)
    {
        ErrorCode error;
        tcp::resolver resolver(m_loop.context());
        const auto found =
            resolver.resolve(host, std::to_string(port),
                             tcp::resolver::passive | tcp::resolver::numeric_service, error);
        if (!error && !found.empty()) {
            const tcp::endpoint endpoint = *found.begin();
            m_acceptor.open(endpoint.protocol(), error);
            if (!error)
                m_acceptor.set_option(tcp::acceptor::reuse_address(true), error);
            if (!error)
                m_acceptor.bind(endpoint, error);
            if (!error)
                m_acceptor.listen(tcp::acceptor::max_listen_connections, error);
        }
        if (error)
            return tl::make_unexpected(error.message());
        const int chosen = m_acceptor.local_endpoint(error).port();
        m_loop.post([self = shared_from_this()] { self->accept(); });
        return chosen;
    }

    void beginStop()
    {
        m_loop.postAndWait([this] {
            m_isStopping = true;
            ErrorCode ignored;
            m_acceptor.close(ignored);
            m_pause.cancel();
        });
        forEach([](HttpConnection &connection) { connection.beginStop(); });
    }

    void endStreams()
    {
        forEach([](HttpConnection &connection) { connection.endStream(); });
    }

    void closeAll()
    {
        forEach([](HttpConnection &connection) { connection.close(); });
    }

private:
    /// Calls @p act for each connection, on its loop, and returns afterwards.
    void forEach(const std::function<void(HttpConnection &)> &act)
    {
        for (std::size_t i = 0; i < m_context.loops.count(); ++i) {
            EventLoop &loop = m_context.loops.at(i);
            loop.postAndWait([&] {
                std::vector<std::shared_ptr<HttpConnection>> here;
                {
                    const std::lock_guard lock(m_mutex);
                    for (const auto &[connection, entry] : m_connections) {
                        if (entry.loop == &loop)
                            here.push_back(entry.connection.lock());
                    }
                }
                for (const auto &connection : here) {
                    if (connection)
                        act(*connection);
                }
            });
        }
    }

    void accept()
    {
        if (m_isStopping)
            return;
        if (isFull()) {
            pause();
            return;
        }
        EventLoop &target = m_context.loops.next();
        m_acceptor.async_accept(target.context(), [self = shared_from_this(), &target](
                                                      const ErrorCode &error, tcp::socket socket) {
            if (self->m_isStopping)
                return;
            if (!error)
                self->add(target, std::move(socket));
            // Too many open files, for example.
            if (error && error != asio::error::connection_aborted)
                self->pause();
            else
                self->accept();
        });
    }

    void pause()
    {
        if (!m_wasFull)
            Log::event("[HttpServer] WARNING: No room for more connections; new ones wait");
        m_wasFull = true;
        m_pause.expires_after(fullPause);
        m_pause.async_wait([self = shared_from_this()](const ErrorCode &) { self->accept(); });
    }

    bool isFull() const
    {
        const std::lock_guard lock(m_mutex);
        return m_connections.size() + m_accepted >= m_context.limits.connections;
    }

    /// Counts a connection of @p peer; false when it has too many.
    bool admit(const std::string &peer)
    {
        const std::size_t most = m_context.limits.connectionsPerPeer;
        const std::lock_guard lock(m_mutex);
        std::size_t &count = m_peers[peer];
        if (most == 0 || count < most || m_context.limits.proxies.contains(peer)) {
            ++count;
            ++m_accepted;
            return true;
        }
        if (!m_hadGreedyPeer)
            Log::event("[HttpServer] WARNING: One address has too many connections; further ones "
                       "are closed");
        m_hadGreedyPeer = true;
        return false;
    }

    void add(EventLoop &loop, tcp::socket socket)
    {
        ErrorCode ignored;
        const std::string peer = socket.remote_endpoint(ignored).address().to_string();
        if (!admit(peer))
            return;
        const auto moved = std::make_shared<tcp::socket>(std::move(socket));
        loop.post([self = shared_from_this(), &loop, moved, peer] {
            // The connection outlives neither this object nor the entry.
            const auto key = std::make_shared<const HttpConnection *>(nullptr);
            const auto connection = std::make_shared<HttpConnection>(
                self->m_context, loop, std::move(*moved), [weak = std::weak_ptr(self), key] {
                    if (const auto listener = weak.lock())
                        listener->remove(*key);
                });
            *key = connection.get();
            {
                const std::lock_guard lock(self->m_mutex);
                --self->m_accepted;
                self->m_connections[connection.get()] = {connection, &loop, peer};
                self->m_context.metrics.connections =
                    static_cast<std::int64_t>(self->m_connections.size());
            }
            connection->start();
        });
    }

    void remove(const HttpConnection *connection)
    {
        const std::lock_guard lock(m_mutex);
        if (const auto found = m_connections.find(connection); found != m_connections.end()) {
            const auto peer = m_peers.find(found->second.peer);
            if (--peer->second == 0)
                m_peers.erase(peer);
            m_connections.erase(found);
        }
        m_context.metrics.connections = static_cast<std::int64_t>(m_connections.size());
    }

    struct Entry
    {
        std::weak_ptr<HttpConnection> connection;
        EventLoop *loop = nullptr;
        std::string peer;
    };

    HttpContext m_context;
    EventLoop &m_loop;
    tcp::acceptor m_acceptor;
    asio::steady_timer m_pause;
    bool m_isStopping = false;
    bool m_wasFull = false;
    bool m_hadGreedyPeer = false;
    mutable std::mutex m_mutex;
    std::map<const HttpConnection *, Entry> m_connections;
    /// Connections by address.
    std::map<std::string, std::size_t> m_peers;
    /// Connections on their way to their loop, which count already.
    std::size_t m_accepted = 0;
};

HttpServer::HttpServer(HttpContext context)
    : m_listener(std::make_shared<Listener>(std::move(context)))
{}

HttpServer::~HttpServer() = default;

tl::expected<int, std::string> HttpServer::listen(const std::string &host, int port)
{
    return m_listener->listen(host, port);
}

void HttpServer::beginStop()
{
    m_listener->beginStop();
}

void HttpServer::endStreams()
{
    m_listener->endStreams();
}

void HttpServer::closeAll()
{
    m_listener->closeAll();
}

} // namespace quellora::server
