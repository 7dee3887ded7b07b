#include "admin/AdminRoutes.h"

#include "base/Log.h"
#include "base/Text.h"
#include "http/PageReplies.h"

#include <sodium.h>

#include <algorithm>

namespace quellora::server {
namespace {

constexpr const char *home = "/admin/people";
constexpr const char *signOutPath = "/admin/sign-out";
constexpr const char *stylePath = "/admin/style.css";
constexpr const char *cookieName = "quellora_admin";

/// Sets the session's cookie, or removes it when @p token is empty.
void setCookie(const Request &request, Response &response, const std::string &token)
{
    // Behind a TLS proxy the browser must not send it without encryption.
    const bool isEncrypted = request.header("X-Forwarded-Proto") == "https";
    response.headers.set("Set-Cookie", std::string(cookieName) + "=" + token +
                                           "; Path=/admin; HttpOnly; SameSite=Strict" +
                                           (token.empty() ? "; Max-Age=0" : "") +
                                           (isEncrypted ? "; Secure" : ""));
}

void setPageHeaders(Response &response)
{
    response.headers.set("Content-Security-Policy",
                         "default-src 'none'; style-src 'self'; base-uri 'none'; "
                         "frame-ancestors 'none'; form-action 'self'");
    response.headers.set("X-Frame-Options", "DENY");
    response.headers.set("Cache-Control", "no-store");
    // The address of an invitation or of a person goes nowhere else.
    response.headers.set("Referrer-Policy", "same-origin");
}

bool isSame(const std::string &left, const std::string &right)
{
    return left.size() == right.size() &&
           sodium_memcmp(left.data(), right.data(), left.size()) == 0;
}

} // namespace

AdminRoutes::AdminRoutes(Services &services, AdminStore &store)
    : m_services(services)
    , m_store(store)
    , m_nonces(store.database, store.clock, "admin-sign-in")
    , m_failures(makeRateLimiter(store.database, store.clock, "admin_failures",
                                 services.config.limits.loginFailures,
                                 services.config.limits.loginWindow))
{
    addPeoplePages(m_all);
    addUsagePages(m_all);
    addMessagePages(m_all);
    addModelPages(m_all);
    addLogPages(m_all);
    addAuditPages(m_all);
    addOwnPages(m_all);
}

std::vector<std::string> AdminRoutes::pagePaths() const
{
    std::vector<std::string> paths = {"/admin", signInPath, stylePath};
    for (const auto &entry : m_all.pages)
        paths.push_back(entry.first);
    return paths;
}

std::vector<std::string> AdminRoutes::formPaths() const
{
    std::vector<std::string> paths = {signInPath, signOutPath};
    for (const auto &entry : m_all.forms)
        paths.push_back(entry.first);
    return paths;
}

std::optional<Visit> AdminRoutes::visitOf(const Request &request)
{
    const std::string token = cookieValue(request, cookieName);
    const auto id = m_store.adminSessions.find(token);
    const auto administrator = id ? m_store.administrators.find(*id) : std::nullopt;
    if (!administrator)
        return std::nullopt;
    return Visit{request, m_store, *administrator, token, {}};
}

void AdminRoutes::showSignIn(Response &response, int status, const std::string &problem)
{
    std::string body = heading("Administration") + problemNote(problem);
    if (m_store.administrators.all().empty())
        body += "<p>There is no administrator yet. Add one on the machine that runs the "
                "server:</p>\n<p><code>quellora-backend admin add EMAIL --generate</code></p>\n";
    body += "<form method=\"post\" action=\"" + std::string(signInPath) + "\">\n" +
            hidden("nonce", m_nonces.issue()) +
            "<label>E-mail address<input type=\"email\" name=\"email\" autocomplete=\"username\" "
            "required></label>\n<label>Password<input type=\"password\" name=\"password\" "
            "autocomplete=\"current-password\" required></label>\n<label>Code of your "
            "authenticator app, or a recovery code<input name=\"code\" "
            "autocomplete=\"one-time-code\" spellcheck=\"false\" maxlength=\"40\" "
            "required></label>\n<button type=\"submit\">Sign in</button>\n</form>\n";
    response.status = status;
    setPageHeaders(response);
    response.setBody(adminHtml("Administration", body, signInPath, nullptr),
                     "text/html; charset=utf-8");
}

void AdminRoutes::signIn(const Request &request, Response &response)
{
    const auto fields = formFields(request.body);
    if (!m_nonces.consume(field(fields, "nonce"))) {
        showSignIn(response, 400, "This page has expired. Please try again.");
        return;
    }
    const std::string email = normalizedEmail(field(fields, "email")).value_or("");
    auto wait = m_services.throttle(request);
    // Counted before it is known to be a failure: attempts side by side do not exceed the limit.
    if (!wait)
        wait = m_failures->acquire(email);
    if (wait) {
        Log::event("[AdminRoutes] WARNING: Sign-in throttled after repeated failures");
        response.headers.set("Retry-After", std::to_string(wait->count()));
        showSignIn(response, 429,
                   "Too many attempts. Please wait " + std::to_string(wait->count()) + " seconds.");
        return;
    }
    const auto administrator = m_store.administrators.authenticate(email, field(fields, "password"),
                                                                   field(fields, "code"));
    if (!administrator) {
        Log::event("[AdminRoutes] WARNING: Sign-in of an administrator refused");
        showSignIn(response, 401,
                   "Wrong address, password or code. Each code works once; wait for the next one.");
        return;
    }
    m_failures->reset(email);
    // Whatever session the browser had before is not the one that is signed in.
    m_store.adminSessions.end(cookieValue(request, cookieName));
    std::string token;
    m_store.database.transaction([&] {
        token = m_store.adminSessions.begin(administrator->id);
        m_store.audit.add(administrator->name, "admin-sign-in", administrator->name);
    });
    Log::event("[AdminRoutes] Signed in " + administrator->name);
    setCookie(request, response, token);
    replySeeOther(response, home);
}

void AdminRoutes::signOut(const Request &request, Response &response)
{
    m_store.adminSessions.end(cookieValue(request, cookieName));
    setCookie(request, response, "");
    replySeeOther(response, signInPath);
}

void AdminRoutes::show(const Request &request, Response &response)
{
    if (request.path == stylePath) {
        response.headers.set("Cache-Control", "no-cache");
        response.setBody(std::string(adminStyle()), "text/css; charset=utf-8");
        return;
    }
    const auto visit = visitOf(request);
    if (request.path == signInPath) {
        showSignIn(response, 200, "");
        return;
    }
    const auto page = m_all.pages.find(request.path);
    if (!visit || page == m_all.pages.end())
        replySeeOther(response, visit ? home : signInPath);
    else
        send(request, response, *visit, page->second(*visit));
}

void AdminRoutes::submit(const Request &request, Response &response)
{
    if (request.path == signInPath) {
        signIn(request, response);
        return;
    }
    auto visit = visitOf(request);
    if (!visit) {
        replySeeOther(response, signInPath);
        return;
    }
    visit->fields = formFields(request.body);
    if (!isSame(visit->field("form"), AdminSessions::formToken(visit->session))) {
        Log::event("[AdminRoutes] WARNING: Refused a form that is not of the session");
        send(request, response, *visit,
             PageReply::page("Refused",
                             heading("Refused") +
                                 problemNote("This form belongs to another session. Open the page "
                                             "again."),
                             403));
        return;
    }
    if (request.path == signOutPath) {
        signOut(request, response);
        return;
    }
    const auto form = m_all.forms.find(request.path);
    send(request, response, *visit,
         form == m_all.forms.end() ? PageReply::gone("There is no such page.")
                                   : form->second(*visit));
}

void AdminRoutes::send(const Request &request, Response &response, const Visit &visit,
                       PageReply reply)
{
    if (!reply.location.empty()) {
        replySeeOther(response, reply.location);
        return;
    }
    response.status = reply.status;
    setPageHeaders(response);
    if (reply.fileName.empty()) {
        response.setBody(adminHtml(reply.title, reply.body, request.path, &visit),
                         "text/html; charset=utf-8");
        return;
    }
    response.headers.set("Content-Disposition", "attachment; filename=\"" + reply.fileName + "\"");
    response.setBody(std::move(reply.body), reply.fileType);
}

} // namespace quellora::server
