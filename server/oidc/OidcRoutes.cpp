#include "oidc/OidcRoutes.h"

#include "base/Log.h"
#include "base/Secrets.h"
#include "base/Text.h"
#include "http/PageReplies.h"
#include "http/PageRoutes.h"
#include "oidc/TeamAccounts.h"

#include <algorithm>

namespace quellora::server {
namespace {

constexpr const char *cookieName = "quellora_team";
constexpr std::size_t longestAnswer = 4096;

bool isEncrypted(const Request &request)
{
    return request.header("X-Forwarded-Proto") == "https";
}

} // namespace

OidcRoutes::OidcRoutes(Services &services, AdminStore &store, OidcFetch fetch)
    : m_services(services)
    , m_store(store)
    , m_provider(services.config.oidc, store.clock, std::move(fetch))
    , m_signIns(store.database, store.clock)
{}

void OidcRoutes::refuse(Response &response, int status, const std::string &why)
{
    replyPage(response, status,
              "<h1>Sign-in failed</h1>\n<p class=\"note bad\" role=\"alert\">" + htmlEscaped(why) +
                  "</p>\n<p>Start again from the app.</p>");
}

void OidcRoutes::begin(const Request &request, Response &response)
{
    if (request.parameter("callback").value_or("") != PageRoutes::callback) {
        refuse(response, 400, "Signing in starts in the app.");
        return;
    }
    if (m_services.throttle(request)) {
        refuse(response, 429, "Too many attempts. Please wait a minute.");
        return;
    }
    const std::string browser = randomToken();
    const std::string origin =
        (isEncrypted(request) ? "https://" : "http://") + request.header("Host");
    const OidcAttempt attempt = m_signIns.begin(browser, origin + donePath);
    const auto url = m_provider.authorizeUrl(attempt);
    if (!url) {
        Log::event("[OidcRoutes] ERROR: Team sign-in not possible: " + url.error());
        refuse(response, 502, "The sign-in of your team cannot be reached now.");
        return;
    }
    // Lax: the browser comes back from another site.
    response.headers.set("Set-Cookie", std::string(cookieName) + "=" + browser +
                                           "; Path=/login/team; HttpOnly; SameSite=Lax; "
                                           "Max-Age=600" +
                                           (isEncrypted(request) ? "; Secure" : ""));
    replySeeOther(response, *url);
}

void OidcRoutes::done(const Request &request, Response &response)
{
    const auto attempt =
        m_signIns.end(request.parameter("state").value_or(""), cookieValue(request, cookieName));
    response.headers.set("Set-Cookie", std::string(cookieName) +
                                           "=; Path=/login/team; HttpOnly; SameSite=Lax; "
                                           "Max-Age=0");
    if (!attempt) {
        Log::event("[OidcRoutes] WARNING: Refused an answer to a sign-in that is not under way");
        refuse(response, 400, "This sign-in has ended, has expired or began in another browser.");
        return;
    }
    const std::string code = request.parameter("code").value_or("");
    if (code.empty() || code.size() > longestAnswer) {
        Log::event("[OidcRoutes] The provider of the team refused a sign-in");
        refuse(response, 403, "Your provider did not sign you in.");
        return;
    }
    const auto claims = m_provider.finish(*attempt, code, request.parameter("iss"));
    if (!claims) {
        Log::event("[OidcRoutes] ERROR: Team sign-in refused: " + claims.error());
        refuse(response, 502, "The answer of your provider could not be trusted or is not there.");
        return;
    }
    const auto account = teamAccount(m_store, m_services.config.oidc, *claims);
    if (!account) {
        Log::event("[OidcRoutes] Team sign-in refused: no account");
        refuse(response, 403, account.error());
        return;
    }
    PageRoutes::redirectWithToken(m_services, response, *account);
}

} // namespace quellora::server
