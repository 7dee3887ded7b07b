#include "admin/AdminPage.h"
#include "admin/UsageChart.h"

#include "base/Text.h"
#include "http/PageReplies.h"

#include <algorithm>

namespace quellora::server {
namespace {

constexpr std::size_t perPage = 50;
constexpr int chartDays = 30;

std::string tags(const Account &account)
{
    std::string html;
    if (account.suspended)
        html += " <span class=\"tag bad\">Suspended</span>";
    if (account.isInvited && account.oidcSubject.empty())
        html += " <span class=\"tag warn\">Invited</span>";
    if (!account.oidcSubject.empty())
        html += " <span class=\"tag\">Team sign-in</span>";
    return html;
}

std::string allowance(std::int64_t cap)
{
    return cap == 0 ? "no limit" : grouped(cap);
}

std::string personLink(const Account &account)
{
    return "<a href=\"/admin/person?id=" + std::to_string(account.id) + "\">" +
           htmlEscaped(account.email) + "</a>";
}

std::string inviteForm(const Visit &visit)
{
    const ServiceSettings &service = visit.store.config.service;
    const auto entered = [&](const char *name, const std::string &otherwise) {
        return htmlEscaped(visit.fields.contains(name) ? visit.field(name) : otherwise);
    };
    return "<h2 id=\"invite\">Invite somebody</h2>\n" + formStart(visit, "/admin/people") +
           "<label>E-mail address<input type=\"email\" name=\"email\" required maxlength=\"254\" "
           "value=\"" +
           entered("email", "") +
           "\"></label>\n<div class=\"row\"><label>Plan<input name=\"plan\" required "
           "maxlength=\"60\" value=\"" +
           entered("plan", service.defaultPlan) +
           "\"></label>\n<label>Tokens a month, 0 for no limit<input name=\"cap\" "
           "inputmode=\"numeric\" pattern=\"[0-9]+\" maxlength=\"13\" required value=\"" +
           entered("cap", std::to_string(service.defaultTokenCap)) + "\"></label></div>\n" +
           submit("Make an invitation link") + "</form>\n";
}

std::string searchForm(const std::string &wanted)
{
    return "<form method=\"get\" action=\"/admin/people\" class=\"row\" role=\"search\">"
           "<label>Search<input type=\"search\" name=\"q\" maxlength=\"100\" value=\"" +
           htmlEscaped(wanted) + "\"></label>\n<button type=\"submit\"" + plainButton +
           ">Search</button></form>\n";
}

PageReply people(const Visit &visit, const std::string &problem = "")
{
    const std::string wanted = lowered(trimmed(visit.parameter("q")));
    std::vector<Account> found = visit.store.accounts.all();
    const std::size_t everybody = found.size();
    std::erase_if(found, [&](const Account &account) {
        return account.email.find(wanted) == std::string::npos &&
               lowered(account.plan).find(wanted) == std::string::npos;
    });
    std::sort(found.begin(), found.end(),
              [](const Account &left, const Account &right) { return left.email < right.email; });
    const std::size_t pages = std::max<std::size_t>(1, (found.size() + perPage - 1) / perPage);
    const std::size_t page = static_cast<std::size_t>(std::clamp<std::int64_t>(
        visit.fields.empty() ? visit.number("page", 1) : 1, 1, static_cast<std::int64_t>(pages)));
    std::string body = heading("People") + problemNote(problem) + doneNote(visit) +
                       "<p class=\"jump\"><a href=\"#invite\">Invite somebody</a></p>\n<div "
                       "class=\"columns\"><section>\n" +
                       searchForm(wanted);
    if (found.empty())
        body += everybody == 0
                    ? "<p>Nobody has an account yet.</p>\n"
                    : "<p>Nobody’s address or plan contains “" + htmlEscaped(wanted) + "”.</p>\n";
    else
        body += "<div class=\"scroll cards\"><table><thead><tr><th scope=\"col\">Person</th><th "
                "scope=\"col\">Plan</th><th scope=\"col\" class=\"num\">Used this month</th><th "
                "scope=\"col\">Last seen</th></tr></thead><tbody>\n";
    for (std::size_t i = (page - 1) * perPage; i < std::min(found.size(), page * perPage); ++i) {
        const Account &account = found[i];
        const std::int64_t used = visit.store.usage.current(account.id).total();
        body += "<tr><td>" + personLink(account) + tags(account) + "</td><td data-name=\"Plan\">" +
                htmlEscaped(account.plan) +
                "</td><td class=\"num\" data-name=\"Used this month\">" + grouped(used) +
                (account.tokenCap > 0 ? " of " + grouped(account.tokenCap) : "") +
                allowanceBar(used, account.tokenCap) +
                "</td><td class=\"time\" data-name=\"Last seen\">" + shortTime(account.lastSeenAt) +
                "</td></tr>\n";
    }
    if (!found.empty())
        body += "</tbody></table></div>\n";
    const std::string address = "<a href=\"/admin/people?" +
                                (wanted.empty() ? "" : "q=" + urlEncoded(wanted) + "&amp;") +
                                "page=";
    if (pages > 1)
        body += "<p class=\"pages\"><span>" +
                (page > 1 ? address + std::to_string(page - 1) + "\">Previous</a>" : "") +
                "</span><span>Page " + std::to_string(page) + " of " + std::to_string(pages) +
                "</span><span>" +
                (page < pages ? address + std::to_string(page + 1) + "\">Next</a>" : "") +
                "</span></p>\n";
    body += "</section><section>\n" + inviteForm(visit) + "</section></div>\n";
    return PageReply::page("People", body, problem.empty() ? 200 : 400);
}

/// The address under which the browser sees this server.
std::string ownAddress(const Request &request)
{
    return (request.header("X-Forwarded-Proto") == "https" ? "https://" : "http://") +
           request.header("Host");
}

PageReply invitedPage(const Visit &visit, const AdminActions::Invited &invited)
{
    const std::string link = ownAddress(visit.request) + "/invite?token=" + invited.token;
    return PageReply::page(
        "Invitation",
        heading("Invitation") + "<p>Give this link to <b>" + htmlEscaped(invited.account.email) +
            "</b>. Whoever opens it sets the account’s password. It works once and for seven "
            "days, and is not shown again.</p>\n<p><code class=\"link\">" +
            htmlEscaped(link) + "</code></p>\n<p><a href=\"/admin/person?id=" +
            std::to_string(invited.account.id) + "\">" + htmlEscaped(invited.account.email) +
            "</a> · <a href=\"/admin/people\">All people</a></p>\n");
}

PageReply invite(const Visit &visit)
{
    const auto invited = visit.actions().invite(visit.field("email"), trimmed(visit.field("plan")),
                                                visit.number("cap", -1));
    if (!invited)
        return people(visit, invited.error());
    return invitedPage(visit, *invited);
}

std::string facts(const Visit &visit, const Account &account)
{
    const TokenCount used = visit.store.usage.current(account.id);
    std::string html = "<dl><dt>Plan</dt><dd>" + htmlEscaped(account.plan) +
                       "</dd><dt>Allowance</dt><dd>" + allowance(account.tokenCap) +
                       (account.tokenCap > 0 ? " tokens a month" : "") +
                       "</dd><dt>Used this month</dt><dd>" + grouped(used.total()) + " tokens in " +
                       grouped(visit.store.usage.queries(account.id)) + " questions" +
                       allowanceBar(used.total(), account.tokenCap) + "</dd><dt>Joined</dt><dd>" +
                       shortTime(account.createdAt) + "</dd><dt>Last seen</dt><dd>" +
                       shortTime(account.lastSeenAt) + "</dd>";
    if (!account.oidcIssuer.empty())
        html += "<dt>Signs in at</dt><dd>" + htmlEscaped(account.oidcIssuer) + "</dd>";
    return html + "<dt>In the audit trail</dt><dd><a href=\"/admin/audit?who=" +
           urlEncoded(account.person) + "\">" + htmlEscaped(account.person) + "</a></dd></dl>\n";
}

std::string personForms(const Visit &visit, const Account &account)
{
    const std::string id = std::to_string(account.id);
    const std::string start = formStart(visit, "/admin/person") + hidden("id", id);
    std::string html =
        "<h2>Change</h2>\n" + formStart(visit, "/admin/person", " class=\"row\"") +
        hidden("id", id) +
        "<label>Tokens a month, 0 for no limit<input name=\"cap\" inputmode=\"numeric\" "
        "pattern=\"[0-9]+\" maxlength=\"13\" required value=\"" +
        std::to_string(account.tokenCap) + "\"></label>\n" +
        submit("Set allowance", "allowance", plainButton) + "</form>\n" +
        formStart(visit, "/admin/person", " class=\"row\"") + hidden("id", id) +
        "<label>Plan<input name=\"plan\" maxlength=\"60\" required value=\"" +
        htmlEscaped(account.plan) + "\"></label>\n" + submit("Set plan", "plan", plainButton) +
        "</form>\n<div class=\"actions\">\n" + start +
        (account.suspended ? submit("Resume", "resume", plainButton)
                           : submit("Suspend", "suspend", plainButton)) +
        "</form>\n" + start + submit("Sign out everywhere", "sign-out", plainButton) + "</form>\n";
    if (account.isInvited)
        html += start + submit("New invitation link", "invite", plainButton) + "</form>\n";
    html +=
        start + submit("Export everything", "export", plainButton) +
        "</form>\n</div>\n<p class=\"actions\"><a href=\"/admin/messages?to=" + id +
        "\">Send a message</a> · <a href=\"/admin/logs?id=" + id + "\">Uploaded logs</a></p>\n" +
        "<details><summary>Delete</summary>\n<p>Removes the account with its sessions, usage, "
        "messages and logs. This cannot be undone.</p>\n" +
        start + submit("Delete " + account.email, "delete", dangerButton) + "</form></details>\n";
    return html;
}

PageReply person(const Visit &visit, const std::string &problem = "")
{
    const auto account = visit.store.accounts.find(visit.number("id", 0));
    if (!account)
        return PageReply::gone("That person is not here any more.");
    const std::string today = isoTime(visit.store.clock.now()).substr(0, 10);
    const auto days = daysBetween(dayBefore(today, chartDays - 1), today);
    const auto usage = visit.store.usage.daily(days.front(), days.back(), account->id);
    return PageReply::page(
        account->email,
        heading(account->email) + problemNote(problem) + doneNote(visit) + "<p>" + tags(*account) +
            "</p>\n<div class=\"columns\"><section>\n" +
            barChart("Tokens per day, last 30 days", tokensPerDay(usage, days), "tokens") +
            "<p><a href=\"/admin/usage?id=" + std::to_string(account->id) +
            "\">Usage by model and day</a></p>\n" + facts(visit, *account) +
            "</section><section>\n" + personForms(visit, *account) + "</section></div>\n",
        problem.empty() ? 200 : 400);
}

PageReply changePerson(const Visit &visit)
{
    const std::int64_t id = visit.number("id", 0);
    const std::string action = visit.field("action");
    const AdminActions actions = visit.actions();
    const auto done = [&](const AdminActions::Done &result) {
        return result ? PageReply::to("/admin/person?id=" + std::to_string(id) + "&done=" + action)
                      : person(visit, result.error());
    };
    if (action == "suspend" || action == "resume")
        return done(actions.setSuspended(id, action == "suspend"));
    if (action == "allowance")
        return done(actions.setTokenCap(id, visit.number("cap", -1)));
    if (action == "plan")
        return done(actions.setPlan(id, trimmed(visit.field("plan"))));
    if (action == "sign-out")
        return done(actions.signOut(id).map([](int) {}));
    if (action == "delete") {
        const AdminActions::Done result = actions.remove(id);
        return result ? PageReply::to("/admin/people?done=delete") : person(visit, result.error());
    }
    if (action == "invite") {
        const auto invited = actions.inviteAgain(id);
        return invited ? invitedPage(visit, *invited) : person(visit, invited.error());
    }
    if (action == "export") {
        auto record = actions.exportPerson(id);
        return record ? PageReply::file("person-" + std::to_string(id) + ".json",
                                        "application/json", *std::move(record))
                      : person(visit, record.error());
    }
    return person(visit, "Choose what to do.");
}

} // namespace

void addPeoplePages(AdminPages &all)
{
    all.pages["/admin/people"] = [](const Visit &visit) { return people(visit); };
    all.forms["/admin/people"] = invite;
    all.pages["/admin/person"] = [](const Visit &visit) { return person(visit); };
    all.forms["/admin/person"] = changePerson;
}

} // namespace quellora::server
