#include "admin/InviteRoutes.h"

#include "admin/AdminActions.h"
#include "base/Log.h"
#include "base/Text.h"
#include "http/PageReplies.h"

namespace quellora::server {

void InviteRoutes::form(Response &response, int status, const std::string &token,
                        const std::string &problem)
{
    const auto id = m_store.invitations.find(token);
    const auto account = id ? m_store.accounts.find(*id) : std::nullopt;
    if (!account) {
        replyPage(response, 404,
                  "<h1>This invitation is not valid</h1>\n<p>It was used, has expired or was "
                  "replaced by a newer one. Ask whoever invited you for another.</p>");
        return;
    }
    replyPage(
        response, status,
        "<h1>Welcome to Quellora</h1>\n" +
            (problem.empty()
                 ? ""
                 : "<p class=\"note bad\" role=\"alert\">" + htmlEscaped(problem) + "</p>\n") +
            "<p>Choose a password for <b>" + htmlEscaped(account->email) +
            "</b>.</p>\n<form method=\"post\" action=\"/invite\">\n" + hidden("token", token) +
            "<input type=\"hidden\" name=\"email\" autocomplete=\"username\" value=\"" +
            htmlEscaped(account->email) +
            "\">\n<label>Password, at least 8 characters<input type=\"password\" "
            "name=\"password\" autocomplete=\"new-password\" minlength=\"8\" "
            "maxlength=\"1024\" required></label>\n<label>The same again<input "
            "type=\"password\" name=\"again\" autocomplete=\"new-password\" "
            "minlength=\"8\" maxlength=\"1024\" required></label>\n"
            "<button type=\"submit\">Set password</button>\n</form>\n");
}

void InviteRoutes::show(const Request &request, Response &response)
{
    form(response, 200, request.parameter("token").value_or(""), "");
}

void InviteRoutes::submit(const Request &request, Response &response)
{
    const auto fields = formFields(request.body);
    const std::string token = field(fields, "token");
    if (m_services.throttle(request)) {
        form(response, 429, token, "Too many attempts. Please wait a minute.");
        return;
    }
    const std::string password = field(fields, "password");
    if (password.size() < AdminActions::shortestPassword ||
        password.size() > AdminActions::longestPassword) {
        form(response, 400, token, "A password has 8 to 1024 characters.");
        return;
    }
    if (password != field(fields, "again")) {
        form(response, 400, token, "The two passwords differ.");
        return;
    }
    std::optional<Account> account;
    m_store.database.transaction([&] {
        account.reset();
        const auto id = m_store.invitations.redeem(token);
        account = id ? m_store.accounts.find(*id) : std::nullopt;
        if (!account)
            return;
        m_store.accounts.setPassword(account->email, password);
        m_store.audit.add(account->person, "accept-invitation", account->person);
    });
    if (!account) {
        form(response, 404, token, "");
        return;
    }
    Log::event("[InviteRoutes] Invitation of account " + std::to_string(account->id) + " accepted");
    replyPage(response, 200,
              "<h1>You are set up</h1>\n<p>Sign in to the Quellora app as <b>" +
                  htmlEscaped(account->email) + "</b> with your new password.</p>");
}

} // namespace quellora::server
