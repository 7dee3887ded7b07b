#pragma once

#include "base/Metrics.h"
#include "base/WorkerPool.h"
#include "config/TrustedProxies.h"
#include "http/Router.h"
#include "model/EventLoop.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace quellora::server {

/// Bounds of connections.
struct HttpLimits
{
    /// Longest head of a request, in bytes.
    std::size_t headBytes = 16U * 1024U;
    /// Longest time from the first byte of a head to its last.
    std::chrono::milliseconds head = std::chrono::seconds(15);
    /// Longest silence within a body, and longest time for a whole body.
    std::chrono::milliseconds bodySilence = std::chrono::seconds(15);
    std::chrono::milliseconds body = std::chrono::minutes(10);
    /// Slowest average of a body, in bytes per second; bodySilence is added to its time.
    std::size_t bodyRate = 1000;
    /// Longest time that a client takes nothing of what waits for it.
    std::chrono::milliseconds writeSilence = std::chrono::seconds(30);
    /// Longest time between two requests.
    std::chrono::milliseconds idle = std::chrono::seconds(75);
    /// How long the rest of a refused body is read, so that the client gets to see the reply.
    std::chrono::milliseconds linger = std::chrono::seconds(30);
    std::size_t requestsPerConnection = 1000;
    std::size_t connections = 12000;
    /// Of these, those from one address; 0 for no limit. Further ones are closed at once.
    std::size_t connectionsPerPeer = 0;
    /// Addresses without that limit, because they connect for many.
    TrustedProxies proxies;
};

/// What connections share; owned by whoever owns the server and outliving it.
struct HttpContext
{
    const Router &router;
    EventLoops &loops;
    WorkerPool &workers;
    WorkerPool &passwordWorkers;
    Metrics &metrics;
    HttpLimits limits;
};

/// Serves HTTP/1.1 on event loops: connections are kept for further requests and cost no thread.
/// Handlers run where their lanes say.
class HttpServer
{
public:
    explicit HttpServer(HttpContext context);
    ~HttpServer();
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;

    /// Starts listening and serving; port 0 picks a free one. Returns the port, or why it failed.
    tl::expected<int, std::string> listen(const std::string &host, int port);
    /// Stops accepting and closes idle connections. Others close after the reply or stream that
    /// they are busy with.
    void beginStop();
    /// Tells running streams to end, after beginStop().
    void endStreams();
    /// Closes all connections. The loops must still run.
    void closeAll();

private:
    class Listener;
    std::shared_ptr<Listener> m_listener;
};

} // namespace quellora::server
