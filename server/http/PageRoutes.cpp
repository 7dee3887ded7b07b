#include "http/PageRoutes.h"

#include "base/Log.h"
#include "base/Text.h"
#include "http/PageText.h"

namespace quellora::server {
namespace {

/// The text of the page's h1 element.
std::string titleOf(const std::string &body)
{
    const std::size_t begin = body.find("<h1>");
    const std::size_t end = body.find("</h1>");
    if (begin == std::string::npos || end == std::string::npos)
        return "Quellora";
    return body.substr(begin + 4, end - begin - 4);
}

void replyPage(httplib::Response &response, int status, const std::string &body)
{
    response.status = status;
    // Browsers also apply form-action to the redirect after a submission, so it has to allow the
    // app's listener.
    response.set_header("Content-Security-Policy",
                        "default-src 'none'; style-src 'self'; base-uri 'none'; "
                        "frame-ancestors 'none'; form-action 'self' http://127.0.0.1:9877");
    response.set_header("X-Frame-Options", "DENY");
    response.set_header("Cache-Control", "no-store");
    response.set_content(pageHtml(titleOf(body), body), "text/html; charset=utf-8");
}

std::string field(const std::map<std::string, std::string> &fields, const std::string &name)
{
    const auto found = fields.find(name);
    return found == fields.end() ? std::string() : found->second;
}

std::string hidden(const std::string &name, const std::string &value)
{
    return "<input type=\"hidden\" name=\"" + name + "\" value=\"" + htmlEscaped(value) + "\">\n";
}

} // namespace

PageRoutes::PageRoutes(Services &services, OwnUserCheck ownUser)
    : m_services(services)
    , m_guard(services)
    , m_signIn(services)
    , m_ownUser(std::move(ownUser))
    , m_nonces(services.clock)
{}

bool PageRoutes::oneClick(const httplib::Request &request) const
{
    return m_services.config.server.oneClickSignIn && m_ownUser(request);
}

void PageRoutes::showLogin(const httplib::Request &request, httplib::Response &response, int status,
                           const std::string &problem)
{
    const std::string form =
        "<form method=\"post\" action=\"/login\">\n" + hidden("callback", callback);
    std::string body = "<h1>Sign in to Quellora</h1>\n"
                       "<p>This signs in the Quellora app on this computer.</p>\n";
    if (!problem.empty())
        body += "<p class=\"problem\" role=\"alert\">" + htmlEscaped(problem) + "</p>\n";
    if (oneClick(request)) {
        for (const Account &account : m_services.accounts.all()) {
            if (account.suspended)
                continue;
            body += form + hidden("nonce", m_nonces.issue()) +
                    hidden("account", std::to_string(account.id)) +
                    "<button type=\"submit\">Continue as " + htmlEscaped(account.email) +
                    "</button>\n</form>\n";
        }
        body += "<h2>Or use a password</h2>\n";
    }
    body += form + hidden("nonce", m_nonces.issue()) +
            "<label>Email<input type=\"email\" name=\"email\" autocomplete=\"username\" "
            "required></label>\n"
            "<label>Password<input type=\"password\" name=\"password\" "
            "autocomplete=\"current-password\" required></label>\n"
            "<button type=\"submit\">Sign in</button>\n</form>\n"
            "<p><a href=\"/reset-password\">Forgot password?</a> · "
            "<a href=\"/signup\">Create an account</a></p>";
    replyPage(response, status, body);
}

void PageRoutes::loginPage(const httplib::Request &request, httplib::Response &response)
{
    if (!request.has_param("callback")) {
        replyPage(response, 200,
                  "<h1>Sign in to Quellora</h1>\n<p>Signing in starts in the app: choose the "
                  "browser sign-in in its login window.</p>\n<p><a href=\"/help\">Help</a></p>");
        return;
    }
    if (request.get_param_value("callback") != callback) {
        Log::event("[PageRoutes] WARNING: Sign-in page refused a foreign callback address");
        replyPage(response, 400,
                  "<h1>Sign-in refused</h1>\n<p>The address that asked for this sign-in is not "
                  "the Quellora app on this computer.</p>");
        return;
    }
    showLogin(request, response, 200, "");
}

void PageRoutes::loginSubmit(const httplib::Request &request, httplib::Response &response,
                             const std::string &body)
{
    if (!m_guard.originAllowed(request, response))
        return;
    const auto fields = formFields(body);
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
        if (!oneClick(request) || !account || account->suspended) {
            showLogin(request, response, 403, "Please sign in with your password.");
            return;
        }
        redirectWithToken(response, *account);
        return;
    }
    if (const auto wait = m_services.authRate.acquire(request.remote_addr)) {
        showLogin(request, response, 429, "Too many attempts. Please wait a minute.");
        return;
    }
    const auto result = m_signIn.attempt(field(fields, "email"), field(fields, "password"));
    if (result.account)
        redirectWithToken(response, *result.account);
    else if (result.refusal == SignInRefusal::Throttled)
        showLogin(request, response, 429,
                  "Too many attempts. Please wait " + std::to_string(result.wait.count()) +
                      " seconds.");
    else if (result.refusal == SignInRefusal::Suspended)
        showLogin(request, response, 403, "This account is suspended.");
    else
        showLogin(request, response, 401, "Wrong e-mail or password.");
}

void PageRoutes::redirectWithToken(httplib::Response &response, const Account &account)
{
    Log::event("[PageRoutes] Browser sign-in for account " + std::to_string(account.id));
    const IssuedSession handover = m_services.sessions.issueHandover(account.id);
    response.status = 303;
    response.set_header("Cache-Control", "no-store");
    response.set_header("Location", std::string(callback) + "?token=" + urlEncoded(handover.token));
}

void PageRoutes::fixedPage(const std::string &path, httplib::Response &response) const
{
    const std::string body = fixedPageBody(path, m_services.config.setupHint("<code>", "</code>"));
    if (body.empty())
        replyPage(response, 404, "<h1>Not found</h1>\n<p><a href=\"/help\">Help</a></p>");
    else
        replyPage(response, 200, body);
}

void PageRoutes::styleSheet(httplib::Response &response)
{
    response.status = 200;
    response.set_header("Cache-Control", "max-age=3600");
    response.set_content(std::string(pageStyle()), "text/css; charset=utf-8");
}

} // namespace quellora::server
