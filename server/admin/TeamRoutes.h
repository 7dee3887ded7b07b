#pragma once

#include "admin/AdminRoutes.h"
#include "admin/AdminStore.h"
#include "admin/InviteRoutes.h"
#include "oidc/OidcRoutes.h"

#include <cstddef>
#include <functional>
#include <string>

namespace quellora::server {

/// The pages that a team needs: administration, invitations and its own sign-in.
class TeamRoutes
{
public:
    using Handler = std::function<void(const Request &, Response &)>;
    using Page = std::function<void(const std::string &path, Handler handler)>;
    /// Also for handlers that check a password.
    using Form = std::function<void(const std::string &path, Handler handler, bool isPassword)>;

    TeamRoutes(Services &services, const PasswordHasher &hasher);

    /// Passes each path with its handler to @p page (GET) or @p form (POST).
    void addTo(const Page &page, const Form &form);

private:
    AdminStore m_store;
    AdminRoutes m_admin;
    InviteRoutes m_invite;
    OidcRoutes m_team;
    bool m_hasTeamSignIn;
};

} // namespace quellora::server
