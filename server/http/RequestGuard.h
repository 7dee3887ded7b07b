#pragma once

#include "http/Services.h"

#include <optional>
#include <string>

namespace quellora::server {

/// Who sends a request.
struct Caller
{
    Account account;
    std::string sessionId;
};

/// Checks that run before the handlers. A failing check writes the error reply.
class RequestGuard
{
public:
    explicit RequestGuard(Services &services) : m_services(services) {}

    /// The Host header names this server (protection against DNS rebinding).
    bool hostAllowed(const Request &request, Response &response) const;
    /// The request was not sent by a web page of another origin.
    bool originAllowed(const Request &request, Response &response) const;
    /// The request comes from this machine, under a loopback name and without a proxy in between.
    bool isLocal(const Request &request) const;
    /// The request comes from the user running the server, who may do without a password.
    bool isOwner(const Request &request) const;
    /// The body is declared as JSON, which other origins cannot send without a preflight request.
    bool jsonBody(const Request &request, Response &response) const;
    /// Whose bearer token it is: 401 without a valid session, 403 when suspended.
    std::optional<Caller> caller(const Request &request, Response &response) const;
    /// The bearer token, or nothing.
    static std::optional<std::string> bearerToken(const Request &request);

private:
    Services &m_services;
};

} // namespace quellora::server
