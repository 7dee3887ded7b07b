#include "admin/AdminPage.h"
#include "admin/QrCode.h"

#include "base/Text.h"

namespace quellora::server {
namespace {

std::string codeField(const char *label)
{
    return "<label>" + std::string(label) +
           "<input name=\"code\" inputmode=\"numeric\" autocomplete=\"one-time-code\" "
           "maxlength=\"7\" required></label>\n";
}

/// The secret within an otpauth address, for typing it in.
std::string secretIn(const std::string &uri)
{
    const std::size_t begin = uri.find("secret=") + 7;
    std::string secret;
    for (std::size_t at = begin; at < uri.size() && uri[at] != '&'; ++at) {
        if (at > begin && (at - begin) % 4 == 0)
            secret += ' ';
        secret += uri[at];
    }
    return secret;
}

std::string renewal(const Visit &visit)
{
    const auto uri = visit.store.administrators.proposedUri(visit.administrator.id);
    if (!uri)
        return formStart(visit, "/admin/me") +
               submit("Set up another authenticator app", "propose", plainButton) + "</form>\n";
    return "<p>Scan this with the app, or type in the secret <code>" + secretIn(*uri) +
           "</code>. The old app stays valid until you have entered a code of the new one.</p>\n" +
           qrSvg(*uri, "QR code with the secret for an authenticator app") +
           formStart(visit, "/admin/me") + codeField("Code of the new app") +
           submit("Use the new app", "confirm") + "</form>\n";
}

PageReply own(const Visit &visit, const std::string &problem = "")
{
    const int left = visit.store.administrators.recoveryCodesLeft(visit.administrator.id);
    return PageReply::page(
        "Your sign-in",
        heading("Your sign-in") + problemNote(problem) + doneNote(visit) + "<p>You are <b>" +
            htmlEscaped(visit.administrator.email) + "</b>, in the audit trail <code>" +
            htmlEscaped(visit.administrator.name) + "</code>.</p>\n<h2>Authenticator app</h2>\n" +
            renewal(visit) + "<h2>Recovery codes</h2>\n<p>" + std::to_string(left) +
            (left == 1 ? " is" : " are") +
            " left. Setting up an app gives new ones.</p>\n<h2>Sessions</h2>\n" +
            formStart(visit, "/admin/me") + submit("End my other sessions", "others", plainButton) +
            "</form>\n",
        problem.empty() ? 200 : 400);
}

PageReply renewed(const std::vector<std::string> &codes)
{
    std::string list;
    for (const std::string &code : codes)
        list += "<li><code>" + code + "</code></li>\n";
    return PageReply::page("Recovery codes",
                           heading("Recovery codes") +
                               "<p>The new app is in force. Keep these codes in a safe place: each "
                               "replaces one code of the app, once. They are not shown "
                               "again.</p>\n<ul class=\"codes\">\n" +
                               list + "</ul>\n<p><a href=\"/admin/people\">Done</a></p>\n");
}

PageReply change(const Visit &visit)
{
    const std::string action = visit.field("action");
    AdminStore &store = visit.store;
    const Administrator &me = visit.administrator;
    if (action == "propose") {
        store.administrators.proposeSecret(me.id);
        return PageReply::to("/admin/me");
    }
    if (action == "others") {
        store.database.transaction([&] {
            store.adminSessions.endOthers(me.id, visit.session);
            store.audit.add(me.name, "end-sessions", me.name);
        });
        return PageReply::to("/admin/me?done=others");
    }
    std::optional<std::vector<std::string>> codes;
    store.database.transaction([&] {
        codes = store.administrators.confirmSecret(me.id, visit.field("code"));
        if (codes)
            store.audit.add(me.name, "renew-authenticator", me.name);
    });
    return codes ? renewed(*codes) : own(visit, "That is not the code that the new app shows.");
}

} // namespace

void addOwnPages(AdminPages &all)
{
    all.pages["/admin/me"] = [](const Visit &visit) { return own(visit); };
    all.forms["/admin/me"] = change;
}

} // namespace quellora::server
