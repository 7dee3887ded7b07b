#include "admin/AdminPage.h"
#include "admin/ModelChoices.h"
#include "admin/UsageChart.h"

#include "base/Text.h"
#include "http/PageReplies.h"

#include <algorithm>

namespace quellora::server {
namespace {

constexpr std::size_t shownLogs = 200;
/// What the page shows of the end of a log; the rest is in the file.
constexpr std::size_t shownBytes = 256U * 1024U;

std::string size(std::int64_t bytes)
{
    return bytes < 1024 ? std::to_string(bytes) + " bytes"
                        : grouped((bytes + 1023) / 1024) + " KiB";
}

/// The end of @p text, from the beginning of a line, without bytes that browsers show oddly.
std::string shownPart(const std::string &text)
{
    std::string part = text;
    if (part.size() > shownBytes) {
        const std::size_t begin = part.find('\n', part.size() - shownBytes);
        part.erase(0, begin == std::string::npos ? part.size() - shownBytes : begin + 1);
    }
    std::erase_if(part, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\n' && c != '\t') || byte == 0x7F;
    });
    return part;
}

std::string requestForm(const Visit &visit)
{
    const bool isOn =
        requestedLogs(visit.store.settings, visit.store.config.service).value_or(false);
    return "<h2>Ask for logs</h2>\n<p>" +
           std::string(isOn ? "The apps are asked to upload their log each time they ask for "
                              "their configuration."
                            : "The apps upload their log only when they are asked to.") +
           "</p>\n" + formStart(visit, "/admin/logs") +
           (isOn ? submit("Stop asking", "stop", plainButton)
                 : submit("Ask all apps for their log", "ask", plainButton)) +
           "</form>\n";
}

PageReply logs(const Visit &visit)
{
    const std::int64_t id = visit.number("id", 0);
    std::map<std::int64_t, std::string> names;
    for (const Account &account : visit.store.accounts.all())
        names[account.id] = account.email;
    std::string body = heading("Uploaded logs") + doneNote(visit);
    if (id != 0)
        body += "<p>Of <b>" + htmlEscaped(names[id]) +
                "</b> only. <a href=\"/admin/logs\">Show all</a></p>\n";
    std::string rows;
    std::size_t count = 0;
    for (const UploadedLog &log : visit.store.logs.list(id)) {
        if (++count > shownLogs)
            break;
        const std::string number = std::to_string(log.id);
        rows += "<tr><td class=\"time\" data-name=\"Received\">" + shortTime(log.receivedAt) +
                "</td><td><a href=\"/admin/person?id=" + std::to_string(log.accountId) + "\">" +
                htmlEscaped(names[log.accountId]) +
                "</a></td><td class=\"num\" data-name=\"Size\">" + size(log.bytes) +
                "</td><td><a href=\"/admin/log?id=" + number +
                "\">Read<span class=\"hidden\"> the log of " + htmlEscaped(names[log.accountId]) +
                "</span></a></td></tr>\n";
    }
    body += rows.empty()
                ? "<p>No log has been uploaded.</p>\n"
                : "<div class=\"scroll cards\"><table><thead><tr><th scope=\"col\">Received "
                  "(UTC)</th><th scope=\"col\">Person</th><th scope=\"col\" "
                  "class=\"num\">Size</th><th scope=\"col\">Content</th></tr></thead><tbody>\n" +
                      rows + "</tbody></table></div>\n";
    if (count > shownLogs)
        body += "<p class=\"dim\">Only the newest " + std::to_string(shownLogs) +
                " are listed; those of one person are listed from their page.</p>\n";
    return PageReply::page("Uploaded logs", body + requestForm(visit));
}

PageReply ask(const Visit &visit)
{
    const bool isAsked = visit.field("action") == "ask";
    const auto done = visit.actions().set(settingNames::requestLogs, isAsked ? "true" : "false");
    return done ? PageReply::to("/admin/logs?done=logs") : PageReply::gone(done.error());
}

PageReply log(const Visit &visit)
{
    const std::int64_t id = visit.number("id", 0);
    const auto found = visit.store.logs.find(id);
    const auto text = visit.actions().readLog(id);
    if (!found || !text)
        return PageReply::gone("That log is not kept any more.");
    const auto account = visit.store.accounts.find(found->accountId);
    const std::string shown = shownPart(*text);
    return PageReply::page(
        "Log", heading("Log of " + (account ? account->email : "somebody")) + "<p>Received " +
                   shortTime(found->receivedAt) + " UTC, " + size(found->bytes) +
                   (text->size() > shownBytes ? "; the end of it is shown" : "") + ".</p>\n" +
                   formStart(visit, "/admin/log") + hidden("id", std::to_string(id)) +
                   submit("Download", "download", plainButton) +
                   "</form>\n<p></p>\n<pre tabindex=\"0\" aria-label=\"Log\">" +
                   htmlEscaped(shown) + "</pre>\n<p><a href=\"/admin/logs\">All logs</a></p>\n");
}

PageReply download(const Visit &visit)
{
    const std::int64_t id = visit.number("id", 0);
    auto text = visit.actions().readLog(id);
    if (!text)
        return PageReply::gone(text.error());
    return PageReply::file("log-" + std::to_string(id) + ".txt", "text/plain; charset=utf-8",
                           *std::move(text));
}

} // namespace

void addLogPages(AdminPages &all)
{
    all.pages["/admin/logs"] = logs;
    all.forms["/admin/logs"] = ask;
    all.pages["/admin/log"] = log;
    all.forms["/admin/log"] = download;
}

} // namespace quellora::server
