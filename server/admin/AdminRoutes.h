#pragma once

#include "admin/AdminPage.h"
#include "http/Services.h"
#include "store/FormNonces.h"

#include <memory>
#include <string>
#include <vector>

namespace quellora::server {

/// The pages below /admin: signing in with password and second factor, and the pages for those who
/// are signed in. No page runs a script. Every form carries a token of its session.
class AdminRoutes
{
public:
    static constexpr const char *signInPath = "/admin/sign-in";

    /// @p store must outlive this object.
    AdminRoutes(Services &services, AdminStore &store);

    /// The paths that are served, for GET and for POST.
    std::vector<std::string> pagePaths() const;
    std::vector<std::string> formPaths() const;
    void show(const Request &request, Response &response);
    void submit(const Request &request, Response &response);

private:
    std::optional<Visit> visitOf(const Request &request);
    void showSignIn(Response &response, int status, const std::string &problem);
    void signIn(const Request &request, Response &response);
    void signOut(const Request &request, Response &response);
    static void send(const Request &request, Response &response, const Visit &visit,
                     PageReply reply);

    Services &m_services;
    AdminStore &m_store;
    AdminPages m_all;
    FormNonces m_nonces;
    std::unique_ptr<RateLimiter> m_failures;
};

} // namespace quellora::server
