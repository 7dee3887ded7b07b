#pragma once

#include "http/Message.h"

#include <cstddef>
#include <functional>
#include <map>
#include <string>

namespace quellora::server {

/// Fills in the reply to a request. Runs where its lane says; several run at a time.
using Handler = std::function<void(const Request &, Response &)>;

/// Where a handler runs.
enum class Lane {
    /// On a worker, so it may block. Refused when too many requests wait for one.
    Requests,
    /// For handlers that check passwords: few run at a time, so that they keep no others waiting.
    Passwords,
    /// At once, on the connection's event loop, so it must not block. Never refused.
    Immediate
};

/// A path that is served.
struct Route
{
    /// As registered; names the route in the metrics.
    std::string path;
    Handler handler;
    /// Longest request body in bytes.
    std::size_t bodyLimit = 0;
    Lane lane = Lane::Requests;
};

/// What is served at which path. Set up once, then used from any thread.
class Router
{
public:
    /// Serves GET and HEAD. A @p path that ends with a slash and an asterisk stands for all paths
    /// below it that are not registered themselves.
    void get(const std::string &path, Handler handler, Lane lane = Lane::Requests);
    /// Serves POST with a body of at most @p bodyLimit bytes.
    void post(const std::string &path, std::size_t bodyLimit, Handler handler,
              Lane lane = Lane::Requests);
    /// The route for a request, or null.
    const Route *find(const std::string &method, const std::string &path) const;

private:
    using Routes = std::map<std::string, Route>;
    static const Route *find(const Routes &routes, const std::string &path);

    Routes m_get;
    Routes m_post;
};

} // namespace quellora::server
