#pragma once

#include "http/AuthRoutes.h"
#include "store/FormNonces.h"

namespace quellora::server {

/// The pages for browsers: sign-in for the app, and static pages for the links that the app opens.
class PageRoutes
{
public:
    /// The only address that receives tokens: the app's listener on this machine.
    static constexpr const char *callback = "http://127.0.0.1:9877/oauth-callback";
    explicit PageRoutes(Services &services);

    void loginPage(const Request &request, Response &response);
    void loginSubmit(const Request &request, Response &response);
    /// Page of a fixed path such as "/help"; 404 when there is none.
    void fixedPage(const std::string &path, Response &response) const;
    /// Ends a sign-in: leads the browser to the app's listener with a token for one exchange.
    static void redirectWithToken(Services &services, Response &response, const Account &account);
    static void styleSheet(Response &response);

private:
    void showLogin(const Request &request, Response &response, int status,
                   const std::string &problem);

    Services &m_services;
    RequestGuard m_guard;
    PasswordSignIn m_signIn;
    FormNonces m_nonces;
};

} // namespace quellora::server
