#pragma once

#include "http/RequestGuard.h"

namespace quellora::server {

/// POST /api/proxy/query: checks a query and streams its answer.
class QueryRoutes
{
public:
    explicit QueryRoutes(Services &services) : m_services(services), m_guard(services) {}

    void query(const Request &request, Response &response) const;

private:
    bool admitted(const Request &request, Response &response, const Account &account) const;

    Services &m_services;
    RequestGuard m_guard;
};

} // namespace quellora::server
