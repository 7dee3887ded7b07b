#pragma once

#include "http/Services.h"

#include <httplib.h>

#include <optional>
#include <string>

namespace quellora::server {

/// Checks that run before the handlers. A failing check writes the error reply.
class RequestGuard
{
public:
    explicit RequestGuard(Services &services) : m_services(services) {}

    /// The Host header names this server (protection against DNS rebinding).
    bool hostAllowed(const httplib::Request &request, httplib::Response &response) const;
    /// The request was not sent by a web page of another origin.
    bool originAllowed(const httplib::Request &request, httplib::Response &response) const;
    /// The request comes from the user running the server, who may do without a password.
    bool isOwner(const httplib::Request &request) const;
    /// The body is declared as JSON, which other origins cannot send without a preflight request.
    bool jsonBody(const httplib::Request &request, httplib::Response &response) const;
    /// The account of the bearer token: 401 without a valid session, 403 when suspended.
    std::optional<Account> account(const httplib::Request &request,
                                   httplib::Response &response) const;
    /// The bearer token, or nothing.
    static std::optional<std::string> bearerToken(const httplib::Request &request);

private:
    Services &m_services;
};

/// Reads a request body of up to @p limit bytes. Nothing, with a 413 or 400 reply, when that fails.
/// A longer body is read to its end, because the client reads the reply only then.
std::optional<std::string> readBody(const httplib::ContentReader &reader,
                                    httplib::Response &response, std::size_t limit);

} // namespace quellora::server
