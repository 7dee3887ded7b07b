#pragma once

#include "admin/AdminStore.h"
#include "http/Services.h"
#include "oidc/OidcProvider.h"
#include "oidc/OidcSignIns.h"

#include <string>

namespace quellora::server {

/// The sign-in of the app at the team's provider: GET /login/team begins it, GET /login/team/done
/// is where the provider sends the browser back. It ends like the sign-in by password, at the app's
/// listener on the user's machine.
class OidcRoutes
{
public:
    static constexpr const char *beginPath = "/login/team";
    static constexpr const char *donePath = "/login/team/done";

    OidcRoutes(Services &services, AdminStore &store, OidcFetch fetch);

    void begin(const Request &request, Response &response);
    void done(const Request &request, Response &response);

private:
    void refuse(Response &response, int status, const std::string &why);

    Services &m_services;
    AdminStore &m_store;
    OidcProvider m_provider;
    OidcSignIns m_signIns;
};

} // namespace quellora::server
