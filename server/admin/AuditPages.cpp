#include "admin/AdminPage.h"

#include "base/Text.h"

#include <algorithm>

namespace quellora::server {
namespace {

constexpr int perPage = 50;

/// A person of the trail: the address of somebody who is still here, else the pseudonym.
std::string personCell(const std::string &name, const std::map<std::string, std::string> &names)
{
    const auto found = names.find(name);
    if (found == names.end())
        return htmlEscaped(name);
    return "<a href=\"/admin/audit?who=" + urlEncoded(name) + "\">" + htmlEscaped(found->second) +
           "</a>";
}

/// The name in the trail of whoever was searched for: an address, a pseudonym or "command line".
std::string wantedName(const std::string &entered, const std::map<std::string, std::string> &names)
{
    const auto found = std::find_if(names.begin(), names.end(), [&](const auto &entry) {
        return entry.second == lowered(entered);
    });
    return found == names.end() ? entered : found->first;
}

std::string actionChoice(const std::vector<std::string> &actions, const std::string &chosen)
{
    std::string html =
        "<label>Action<select name=\"action\"><option value=\"\">All actions</option>";
    for (const std::string &action : actions)
        html += "<option" + std::string(action == chosen ? " selected>" : ">") +
                htmlEscaped(action) + "</option>";
    return html + "</select></label>\n";
}

PageReply audit(const Visit &visit)
{
    const auto names = knownNames(visit.store);
    const std::string who = trimmed(visit.parameter("who"));
    const std::int64_t before = visit.number("before", 0);
    const std::string name = wantedName(who, names);
    const std::string action = visit.parameter("action");
    std::vector<AuditEntry> entries;
    if (isStorableText(name) && isStorableText(action))
        entries = visit.store.audit.list(perPage + 1, {name, action, before});
    const bool hasMore = entries.size() > perPage;
    entries.resize(std::min<std::size_t>(entries.size(), perPage));

    const auto known = names.find(name);
    std::string body =
        heading("Audit trail") +
        "<p>What administrators did. Entries can neither be changed nor removed; people who were "
        "deleted are in it under a pseudonym.</p>\n<form method=\"get\" action=\"/admin/audit\" "
        "class=\"row\" role=\"search\"><label>By or about, an address or a name of the "
        "trail<input type=\"search\" name=\"who\" maxlength=\"254\" value=\"" +
        htmlEscaped(known == names.end() ? who : known->second) + "\"></label>\n" +
        actionChoice(visit.store.audit.actions(), action) + "<button type=\"submit\"" +
        plainButton + ">Show</button></form>\n";
    if (entries.empty())
        return PageReply::page("Audit trail", body + "<p>" +
                                                  (who.empty() && action.empty() && before == 0
                                                       ? "Nothing has been done yet."
                                                       : "No entry.") +
                                                  "</p>\n");
    body += "<div class=\"scroll cards\"><table><thead><tr><th scope=\"col\">Time (UTC)</th><th "
            "scope=\"col\">By</th><th scope=\"col\">Action</th><th scope=\"col\">About</th><th "
            "scope=\"col\">Detail</th></tr></thead><tbody>\n";
    for (const AuditEntry &entry : entries)
        body +=
            "<tr><td class=\"time\">" + shortTime(entry.at) + "</td><td data-name=\"By\">" +
            personCell(entry.actor, names) + "</td><td data-name=\"Action\">" +
            htmlEscaped(entry.action) + "</td><td data-name=\"About\">" +
            personCell(entry.subject, names) + "</td><td" +
            (entry.detail.empty() ? ">" : " data-name=\"Detail\">" + htmlEscaped(entry.detail)) +
            "</td></tr>\n";
    body += "</tbody></table></div>\n";
    const std::string link =
        "<a href=\"/admin/audit?who=" + urlEncoded(name) + "&amp;action=" + urlEncoded(action);
    body += "<p class=\"pages\"><span>" + (before == 0 ? "" : link + "\">Newest</a>") +
            "</span><span>" +
            (hasMore ? link + "&amp;before=" + std::to_string(entries.back().id) + "\">Older</a>"
                     : "") +
            "</span></p>\n";
    return PageReply::page("Audit trail", body);
}

} // namespace

void addAuditPages(AdminPages &all)
{
    all.pages["/admin/audit"] = audit;
}

} // namespace quellora::server
