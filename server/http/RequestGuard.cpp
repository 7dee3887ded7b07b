#include "http/RequestGuard.h"

#include "base/Text.h"
#include "http/Replies.h"
#include "providers/UpstreamSettings.h"

#include <algorithm>

namespace quellora::server {
namespace {

/// "name:port" or "[v6]:port" without the port, lower case; nothing when it has another form.
std::string hostName(const std::string &host)
{
    const std::string text = lowered(trimmed(host));
    const std::size_t bracket = text.starts_with('[') ? text.find(']') : 0;
    const std::size_t colon = std::min(text.find(':', bracket), text.size());
    const bool isPort = text.size() <= colon + 6 &&
                        text.find_first_not_of("0123456789", colon + 1) == std::string::npos &&
                        (bracket == 0 || (bracket != std::string::npos && colon == bracket + 1));
    return isPort ? text.substr(0, colon) : "";
}

} // namespace

bool RequestGuard::hostAllowed(const Request &request, Response &response) const
{
    const std::string name = hostName(request.header("Host"));
    const ServerSettings &server = m_services.config.server;
    const bool known = name == "127.0.0.1" || name == "localhost" || name == "[::1]" ||
                       name == lowered(server.host) ||
                       std::any_of(server.allowedHosts.begin(), server.allowedHosts.end(),
                                   [&](const std::string &host) { return lowered(host) == name; });
    if (!known)
        replyError(response, 421, "this server does not answer under that host name");
    return known;
}

bool RequestGuard::originAllowed(const Request &request, Response &response) const
{
    const std::string site = request.header("Sec-Fetch-Site");
    const std::string origin = request.header("Origin");
    const bool ownSite = site.empty() || site == "same-origin" || site == "none";
    const std::string host = request.header("Host");
    const bool ownOrigin =
        origin.empty() || origin == "http://" + host || origin == "https://" + host;
    if (!ownSite || !ownOrigin)
        replyError(response, 403, "requests from other web pages are refused");
    return ownSite && ownOrigin;
}

bool RequestGuard::isLocal(const Request &request) const
{
    // A proxy's connections belong to the proxy's user, whoever is behind it.
    const bool isForwarded = request.headers.has("Forwarded") ||
                             request.headers.has("X-Forwarded-For") ||
                             request.headers.has("X-Forwarded-Host") ||
                             request.headers.has("X-Real-IP") || request.headers.has("Via");
    return !isForwarded && isLoopbackHost(request.peerAddress) &&
           isLoopbackHost(hostName(request.header("Host")));
}

bool RequestGuard::isOwner(const Request &request) const
{
    return m_services.config.server.oneClickSignIn && isLocal(request) &&
           m_services.ownUser(request);
}

bool RequestGuard::jsonBody(const Request &request, Response &response) const
{
    const std::string type = lowered(request.header("Content-Type"));
    const bool json = trimmed(type.substr(0, type.find(';'))) == "application/json";
    if (!json)
        replyError(response, 415, "the body must be application/json");
    return json;
}

std::optional<std::string> RequestGuard::bearerToken(const Request &request)
{
    const std::string value = request.header("Authorization");
    if (lowered(value.substr(0, 7)) != "bearer ")
        return std::nullopt;
    const std::string token = trimmed(value.substr(7));
    if (token.empty() || token.size() > 512)
        return std::nullopt;
    return token;
}

std::optional<Caller> RequestGuard::caller(const Request &request, Response &response) const
{
    const auto token = bearerToken(request);
    const auto session = token ? m_services.sessions.find(*token) : std::nullopt;
    const auto account = session ? m_services.accounts.find(session->accountId) : std::nullopt;
    if (!account) {
        response.headers.set("WWW-Authenticate", "Bearer");
        replyError(response, 401, "the session token is unknown or has expired");
        return std::nullopt;
    }
    if (account->suspended) {
        replyError(response, 403, "the account is suspended");
        return std::nullopt;
    }
    try {
        m_services.accounts.touch(*account);
    } catch (const DatabaseError &) {
        // The next request notes it.
    }
    return Caller{*account, session->id};
}

} // namespace quellora::server
