#pragma once

#include "http/RequestGuard.h"

namespace quellora::server {

/// POST /api/telemetry/query and /api/logs/app.
class UploadRoutes
{
public:
    explicit UploadRoutes(Services &services) : m_services(services), m_guard(services) {}

    void telemetry(const httplib::Request &request, httplib::Response &response,
                   const std::string &body) const;
    void logs(const httplib::Request &request, httplib::Response &response,
              const std::string &body) const;

private:
    std::optional<Account> admitted(const httplib::Request &request,
                                    httplib::Response &response) const;

    Services &m_services;
    RequestGuard m_guard;
};

} // namespace quellora::server
