#pragma once

#include "admin/AdminStore.h"
#include "http/Services.h"

namespace quellora::server {

/// GET and POST /invite: the page on which an invited person sets a password.
class InviteRoutes
{
public:
    InviteRoutes(Services &services, AdminStore &store) : m_services(services), m_store(store) {}

    void show(const Request &request, Response &response);
    void submit(const Request &request, Response &response);

private:
    void form(Response &response, int status, const std::string &token, const std::string &problem);

    Services &m_services;
    AdminStore &m_store;
};

} // namespace quellora::server
