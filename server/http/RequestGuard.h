#pragma once

#include "http/Services.h"

#include <httplib.h>

#include <optional>
#include <string>

namespace quellora::server {

/// Checks that stand before every handler. Where a check fails, the reply is already written.
class RequestGuard
{
public:
    explicit RequestGuard(Services &services) : m_services(services) {}

    /// The request names this server, not a foreign name that was pointed at it.
    bool hostAllowed(const httplib::Request &request, httplib::Response &response) const;
    /// No web page of another origin stands behind the request.
    bool originAllowed(const httplib::Request &request, httplib::Response &response) const;
    /// The body says it is JSON, which a foreign web page cannot send unasked.
    bool jsonBody(const httplib::Request &request, httplib::Response &response) const;
    /// The account of the bearer token: 401 without a running session, 403 when suspended.
    std::optional<Account> account(const httplib::Request &request,
                                   httplib::Response &response) const;
    /// The bearer token, or nothing.
    static std::optional<std::string> bearerToken(const httplib::Request &request);

private:
    Services &m_services;
};

/// Reads a request body up to @p limit bytes; what is beyond is read and dropped, so that the
/// client gets to see the reply. Nothing (with status 413 or 400 set) when it does not fit.
std::optional<std::string> readBody(const httplib::ContentReader &reader,
                                    httplib::Response &response, std::size_t limit);

} // namespace quellora::server
