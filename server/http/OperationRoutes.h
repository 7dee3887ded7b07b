#pragma once

#include "http/RequestGuard.h"

namespace quellora::server {

/// What load balancers and monitoring ask: /livez, /readyz, /metrics, and the contract at
/// /openapi.json.
class OperationRoutes
{
public:
    explicit OperationRoutes(Services &services) : m_services(services), m_guard(services) {}

    /// 200 as long as the process answers.
    void live(const Request &request, Response &response) const;
    /// 200 while this instance takes new work: it is not draining and its store answers.
    void ready(const Request &request, Response &response) const;
    /// For this machine without a proxy in between, or with the configured token.
    void metrics(const Request &request, Response &response) const;
    /// The OpenAPI document.
    void contract(const Request &request, Response &response) const;

private:
    bool mayWatch(const Request &request) const;

    Services &m_services;
    RequestGuard m_guard;
};

} // namespace quellora::server
