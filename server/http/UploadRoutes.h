#pragma once

#include "http/RequestGuard.h"

namespace quellora::server {

/// POST /api/telemetry/query and /api/logs/app.
class UploadRoutes
{
public:
    explicit UploadRoutes(Services &services) : m_services(services), m_guard(services) {}

    void telemetry(const Request &request, Response &response) const;
    void logs(const Request &request, Response &response) const;

private:
    std::optional<Account> admitted(const Request &request, Response &response) const;

    Services &m_services;
    RequestGuard m_guard;
};

} // namespace quellora::server
