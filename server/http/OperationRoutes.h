#pragma once

#include "http/RequestGuard.h"

#include <atomic>
#include <cstddef>

namespace quellora::server {

/// What load balancers and monitoring ask: /livez, /readyz, /metrics, and the contract at
/// /openapi.json.
class OperationRoutes
{
public:
    /// @p waiting: how many connections wait for a thread.
    OperationRoutes(Services &services, const std::atomic<std::size_t> &waiting)
        : m_services(services), m_guard(services), m_waiting(waiting)
    {}

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
    const std::atomic<std::size_t> &m_waiting;
};

} // namespace quellora::server
