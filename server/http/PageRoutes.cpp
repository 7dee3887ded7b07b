#include "http/PageRoutes.h"

#include "base/Log.h"
#include "base/Text.h"
#include "http/PageReplies.h"
#include "http/PageText.h"

namespace quellora::server {

PageRoutes::PageRoutes(Services &services)
    : m_services(services)
    , m_guard(services)
    , m_signIn(services)
    , m_nonces(services.database, services.clock, "sign-in")
{}

void PageRoutes::showLogin(const Request &request, Response &response, int status,
                           const std::string &problem)
{
    const std::string form =
        "<form method=\"post\" action=\"/login\">\n" + hidden("callback", callback);
    std::string body = "<h1>Sign in to Quellora</h1>\n"
                       "<p>This signs in the Quellora app on this computer.</p>\n";
    if (!problem.empty())
        body += "<p class=\"problem\" role=\"alert\">" + htmlEscaped(problem) + "</p>\n";
    const OidcSettings &team = m_services.config.oidc;
    if (team.isOn())
        body += "<p><a class=\"button\" href=\"/login/team?callback=" + urlEncoded(callback) +
                "\">Sign in with " + htmlEscaped(team.name) + "</a></p>\n";
    if (m_guard.isOwner(request)) {
        for (const Account &account : m_services.accounts.all()) {
            if (account.suspended)
                continue;
            body += form + hidden("nonce", m_nonces.issue()) +
                    hidden("account", std::to_string(account.id)) +
                    "<button type=\"submit\">Continue as " + htmlEscaped(account.email) +
                    "</button>\n</form>\n";
        }
    }
    if (team.isOn() || m_guard.isOwner(request))
        body += "<h2>Or use a password</h2>\n";
    body += form + hidden("nonce", m_nonces.issue()) +
            "<label>Email<input type=\"email\" name=\"email\" autocomplete=\"username\" "
            "required></label>\n"
            "<label>Password<input type=\"password\" name=\"password\" "
            "autocomplete=\"current-password\" required></label>\n"
            "<button type=\"submit\">Sign in</button>\n</form>\n"
            "<p><a href=\"/reset-password\">Forgot password?</a> · "
            "<a href=\"/signup\">Create an account</a></p>";
    replyPage(response, status, body, FormTargets::AppListener);
}

void PageRoutes::loginPage(const Request &request, Response &response)
{
    const auto wanted = request.parameter("callback");
    if (!wanted) {
        replyPage(response, 200,
                  "<h1>Sign in to Quellora</h1>\n<p>Signing in starts in the app: choose the "
                  "browser sign-in in its login window.</p>\n<p><a href=\"/help\">Help</a></p>");
        return;
    }
    if (*wanted != callback) {
        Log::event("[PageRoutes] WARNING: Sign-in page refused a foreign callback address");
        replyPage(response, 400,
                  "<h1>Sign-in refused</h1>\n<p>The address that asked for this sign-in is not "
                  "the Quellora app on this computer.</p>");
        return;
    }
    showLogin(request, response, 200, "");
}

void PageRoutes::loginSubmit(const Request &request, Response &response)
{
    if (!m_guard.originAllowed(request, response))
        return;
    const auto fields = formFields(request.body);
    if (field(fields, "callback") != callback) {
        replyPage(response, 400, "<h1>Sign-in refused</h1>\n<p>Start again from the app.</p>");
        return;
    }
    if (!m_nonces.consume(field(fields, "nonce"))) {
        showLogin(request, response, 400, "This page has expired. Please try again.");
        return;
    }
    if (!field(fields, "account").empty()) {
        const auto id = parseCount(field(fields, "account"));
        const auto account = id ? m_services.accounts.find(*id) : std::nullopt;
        if (!m_guard.isOwner(request) || !account || account->suspended) {
            showLogin(request, response, 403, "Please sign in with your password.");
            return;
        }
        redirectWithToken(m_services, response, *account);
        return;
    }
    if (const auto wait = m_services.throttle(request)) {
        showLogin(request, response, 429, "Too many attempts. Please wait a minute.");
        return;
    }
    const auto result = m_signIn.attempt(field(fields, "email"), field(fields, "password"));
    if (result.account)
        redirectWithToken(m_services, response, *result.account);
    else if (result.refusal == SignInRefusal::Throttled)
        showLogin(request, response, 429,
                  "Too many attempts. Please wait " + std::to_string(result.wait.count()) +
                      " seconds.");
    else if (result.refusal == SignInRefusal::Suspended)
        showLogin(request, response, 403, "This account is suspended.");
    else
        showLogin(request, response, 401, "Wrong e-mail or password.");
}

void PageRoutes::redirectWithToken(Services &services, Response &response, const Account &account)
{
    Log::event("[PageRoutes] Browser sign-in for account " + std::to_string(account.id));
    const IssuedSession handover = services.sessions.issueHandover(account.id);
    replySeeOther(response, std::string(callback) + "?token=" + urlEncoded(handover.token));
}

void PageRoutes::fixedPage(const std::string &path, Response &response) const
{
    const std::string body = fixedPageBody(path, m_services.config.setupHint("<code>", "</code>"));
    if (body.empty())
        replyPage(response, 404, "<h1>Not found</h1>\n<p><a href=\"/help\">Help</a></p>");
    else
        replyPage(response, 200, body);
}

void PageRoutes::styleSheet(Response &response)
{
    response.status = 200;
    response.headers.set("Cache-Control", "no-cache");
    response.setBody(std::string(pageStyle()), "text/css; charset=utf-8");
}

} // namespace quellora::server
