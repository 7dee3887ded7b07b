#include "admin/AdminPage.h"

#include "base/Text.h"
#include "http/PageReplies.h"

#include <algorithm>

namespace quellora::server {
namespace {

constexpr std::size_t shownMessages = 100;

/// Browsers send line breaks as two characters.
std::string unixLines(std::string text)
{
    std::erase(text, '\r');
    return text;
}

std::string card(const Visit &visit, const StoredMessage &stored, const std::string &audience)
{
    const AdminMessage &message = stored.message;
    const bool isShown = stored.withdrawnAt == 0;
    std::string html =
        "<article class=\"card\"><h3>" + htmlEscaped(message.headerText) +
        "</h3>\n<p class=\"meta\">" +
        (message.type == "BLOCKING" ? "<span class=\"tag bad\">Blocks questions</span> "
                                    : "<span class=\"tag\">Information</span> ") +
        (message.forceUpdateInMinutes
             ? "<span class=\"tag warn\">Forced update within " +
                   std::to_string(*message.forceUpdateInMinutes) + " minutes</span> "
             : "") +
        "To " + htmlEscaped(audience) + " · " + shortTime(stored.createdAt / 1000) +
        (isShown ? "" : " · withdrawn " + shortTime(stored.withdrawnAt / 1000)) + "</p>\n<p>" +
        htmlEscaped(message.bodyMarkdown) + "</p>\n";
    if (message.actionLabel && message.actionUrl)
        html += "<p class=\"meta\">Button “" + htmlEscaped(*message.actionLabel) + "” opens " +
                htmlEscaped(*message.actionUrl) + "</p>\n";
    if (isShown)
        html += formStart(visit, "/admin/messages") + hidden("message", message.id) +
                submit("Withdraw", "withdraw", plainButton) + "</form>\n";
    return html + "</article>\n";
}

std::string sendForm(const Visit &visit, const std::vector<Account> &accounts)
{
    const auto kept = [&](const char *name) { return htmlEscaped(visit.field(name)); };
    const std::int64_t to = visit.number("to", 0);
    const std::string kind = visit.field("kind");
    const auto option = [&](const char *value, const char *text) {
        return "<option value=\"" + std::string(value) + "\"" +
               (kind == value ? " selected>" : ">") + text + "</option>\n";
    };
    std::string html = "<h2 id=\"send\">Send a message</h2>\n" +
                       formStart(visit, "/admin/messages") +
                       "<label>To<select name=\"to\"><option value=\"0\">Everybody</option>\n";
    for (const Account &account : accounts)
        html += "<option value=\"" + std::to_string(account.id) + "\"" +
                (account.id == to ? " selected>" : ">") + htmlEscaped(account.email) +
                "</option>\n";
    return html + "</select></label>\n<label>Kind<select name=\"kind\">\n" +
           option("information", "Information") +
           option("blocking", "Blocking: no questions until it is withdrawn") +
           option("update", "Forced update: no questions after a countdown") +
           "</select></label>\n<label>Minutes until the forced update<input name=\"minutes\" "
           "inputmode=\"numeric\" pattern=\"[0-9]*\" maxlength=\"6\" value=\"" +
           kept("minutes") +
           "\"></label>\n<label>Title<input name=\"header\" required maxlength=\"120\" value=\"" +
           kept("header") +
           "\"></label>\n<label>Text, in Markdown<textarea name=\"body\" required "
           "maxlength=\"8000\">" +
           kept("body") +
           "</textarea></label>\n<div class=\"row\"><label>Caption of a button, optional<input "
           "name=\"label\" maxlength=\"40\" value=\"" +
           kept("label") +
           "\"></label>\n<label>Its address<input name=\"address\" inputmode=\"url\" "
           "maxlength=\"2000\" placeholder=\"https://…\" value=\"" +
           kept("address") + "\"></label></div>\n" + submit("Send", "send") + "</form>\n";
}

PageReply messages(const Visit &visit, const std::string &problem = "")
{
    const std::vector<Account> accounts = visit.store.accounts.all();
    const auto audience = [&](const StoredMessage &stored) -> std::string {
        const auto found =
            std::find_if(accounts.begin(), accounts.end(),
                         [&](const Account &account) { return account.id == stored.accountId; });
        return !stored.accountId ? "everybody" : found == accounts.end() ? "" : found->email;
    };
    std::string shown;
    std::string withdrawn;
    std::size_t count = 0;
    for (const StoredMessage &stored : visit.store.messages.all()) {
        if (++count > shownMessages)
            break;
        (stored.withdrawnAt == 0 ? shown : withdrawn) += card(visit, stored, audience(stored));
    }
    return PageReply::page(
        "Messages",
        heading("Messages") + problemNote(problem) + doneNote(visit) +
            "<p class=\"jump\"><a href=\"#send\">Send a message</a></p>\n<div "
            "class=\"columns\"><section>\n<h2>Shown now</h2>\n" +
            (shown.empty() ? "<p>No message is shown.</p>\n" : shown) +
            (withdrawn.empty() ? ""
                               : "<details><summary>Withdrawn messages</summary>\n" + withdrawn +
                                     "</details>\n") +
            "</section><section>\n" + sendForm(visit, accounts) + "</section></div>\n",
        problem.empty() ? 200 : 400);
}

PageReply send(const Visit &visit)
{
    AdminMessage message;
    const std::string kind = visit.field("kind");
    message.type = kind == "blocking" ? "BLOCKING" : "INFORMATIONAL";
    message.headerText = trimmed(visit.field("header"));
    message.bodyMarkdown = unixLines(visit.field("body"));
    if (const std::string label = trimmed(visit.field("label")); !label.empty())
        message.actionLabel = label;
    if (const std::string address = trimmed(visit.field("address")); !address.empty())
        message.actionUrl = address;
    const std::string minutes = trimmed(visit.field("minutes"));
    if (kind == "update") {
        message.forceUpdateInMinutes = parseCount(minutes);
        if (!message.forceUpdateInMinutes)
            return messages(visit, "Say in how many minutes the update is forced.");
    } else if (!minutes.empty()) {
        return messages(visit, "Minutes belong to a forced update only.");
    }
    const std::int64_t to = visit.number("to", 0);
    const auto sent = visit.actions().sendMessage(
        message, to == 0 ? std::nullopt : std::optional<std::int64_t>(to));
    return sent ? PageReply::to("/admin/messages?done=message") : messages(visit, sent.error());
}

PageReply change(const Visit &visit)
{
    if (visit.field("action") != "withdraw")
        return send(visit);
    const auto done = visit.actions().withdrawMessage(visit.field("message"));
    return done ? PageReply::to("/admin/messages?done=withdraw") : messages(visit, done.error());
}

} // namespace

void addMessagePages(AdminPages &all)
{
    all.pages["/admin/messages"] = [](const Visit &visit) { return messages(visit); };
    all.forms["/admin/messages"] = change;
}

} // namespace quellora::server
