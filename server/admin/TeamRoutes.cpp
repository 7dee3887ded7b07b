#include "admin/TeamRoutes.h"

#include "oidc/CurlFetch.h"

namespace quellora::server {

TeamRoutes::TeamRoutes(Services &services, const PasswordHasher &hasher)
    : m_store(services.config, services.database, hasher, services.clock,
              [&services] { return services.models.current()->models(); })
    , m_admin(services, m_store)
    , m_invite(services, m_store)
    , m_team(services, m_store, curlFetch())
    , m_hasTeamSignIn(services.config.oidc.isOn())
{}

void TeamRoutes::addTo(const Page &page, const Form &form)
{
    for (const std::string &path : m_admin.pagePaths())
        page(path,
             [this](const auto &request, auto &response) { m_admin.show(request, response); });
    for (const std::string &path : m_admin.formPaths())
        form(
            path,
            [this](const auto &request, auto &response) { m_admin.submit(request, response); },
            path == AdminRoutes::signInPath);
    page("/invite",
         [this](const auto &request, auto &response) { m_invite.show(request, response); });
    form(
        "/invite",
        [this](const auto &request, auto &response) { m_invite.submit(request, response); }, true);
    if (!m_hasTeamSignIn)
        return;
    page(OidcRoutes::beginPath,
         [this](const auto &request, auto &response) { m_team.begin(request, response); });
    page(OidcRoutes::donePath,
         [this](const auto &request, auto &response) { m_team.done(request, response); });
}

} // namespace quellora::server
