#include "admin/AdminPage.h"

#include "base/Text.h"
#include "http/PageReplies.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quellora::server {
namespace {

constexpr std::string_view style = R"(
body { padding-top: 0; }
.skip { position: absolute; left: -9999px; } .skip:focus { left: 16px; top: 8px; }
.bar-top { display: flex; flex-wrap: wrap; align-items: center; gap: 4px 16px; padding: 10px 16px; margin-bottom: 24px;
  background: var(--card); border-bottom: 1px solid var(--line); }
.bar-top b { font-weight: 600; } .bar-top nav { display: flex; flex-wrap: wrap; gap: 2px; flex: 1 1 auto; }
.bar-top nav a { padding: 6px 10px; border-radius: 6px; color: var(--text); text-decoration: none; }
.bar-top nav a:hover { background: var(--raised); }
.bar-top nav a[aria-current] { background: var(--raised); color: var(--accent); font-weight: 500; }
.bar-top form button { padding: 5px 12px; }
main.wide { max-width: 1040px; }
.columns { display: grid; grid-template-columns: minmax(0, 3fr) minmax(0, 2fr); gap: 0 32px; align-items: start; }
.columns > section > h2:first-child, .columns > section > form + h2 { margin-top: 0; }
.scroll { overflow-x: auto; margin: 0 0 12px; border: 1px solid var(--line); border-radius: 8px; }
table { width: 100%; border-collapse: collapse; } th, td { padding: 8px 12px; text-align: left; vertical-align: top; }
th { color: var(--dim); font-size: 13px; font-weight: 500; white-space: nowrap; }
tbody tr { border-top: 1px solid var(--line); } td { color: var(--text); overflow-wrap: break-word; }
td a { overflow-wrap: anywhere; } td:has(a) { min-width: 150px; }
form + .dim { margin-top: 12px; }
.num { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap; overflow-wrap: normal; }
.time { white-space: nowrap; font-variant-numeric: tabular-nums; }
.tag { display: inline-block; padding: 0 7px; border: 1px solid var(--outline); border-radius: 9px; font-size: 12px; line-height: 18px;
  color: var(--dim); white-space: nowrap; } .tag.bad { border-color: var(--danger); color: var(--danger); }
.tag.warn { border-color: var(--warn); color: var(--warn); }
.row { display: flex; flex-wrap: wrap; gap: 8px 12px; align-items: end; margin: 0 0 12px; } .row label { flex: 1 1 160px; margin: 0; }
.row button { flex: 0 0 auto; }
select, textarea { width: 100%; margin-top: 4px; padding: 8px 10px; font: inherit; color: var(--text); background: var(--field);
  border: 1px solid var(--outline); border-radius: 6px; } textarea { min-height: 120px; resize: vertical; }
label.check { display: flex; gap: 10px; align-items: flex-start; color: var(--text); font-size: 14px; }
label.check input { margin: 2px 0 0; width: 16px; height: 16px; accent-color: var(--fill); }
.chart { margin: 0 0 16px; } .chart figcaption { margin: 0 0 6px; color: var(--text); font-size: 13px; }
.chart svg { display: block; width: 100%; height: 96px; border-bottom: 1px solid var(--outline); }
.chart .ground { fill: transparent; } .chart g:hover .ground { fill: var(--raised); }
.bar { fill: var(--accent); } .high { fill: var(--warn); } .spent { fill: var(--danger); } .track { fill: var(--line); }
.axis { display: flex; justify-content: space-between; margin-top: 4px; color: var(--dim); font-size: 12px; }
.share { display: block; width: 100%; min-width: 80px; height: 4px; margin-top: 6px; border-radius: 2px; }
dl { display: grid; grid-template-columns: max-content minmax(0, 1fr); gap: 6px 16px; margin: 0 0 16px; }
dt { color: var(--dim); } dd { margin: 0; overflow-wrap: anywhere; }
pre { margin: 0 0 12px; padding: 12px; max-height: 60vh; overflow: auto; background: var(--field); border: 1px solid var(--line);
  border-radius: 8px; font: 12px/18px ui-monospace, monospace; color: var(--text); white-space: pre-wrap; overflow-wrap: anywhere; }
.link { display: block; padding: 10px 12px; background: var(--field); border: 1px solid var(--line); border-radius: 6px;
  user-select: all; }
.qr { display: block; width: 220px; max-width: 100%; margin: 0 0 12px; border-radius: 6px; }
.codes { display: grid; grid-template-columns: repeat(auto-fill, minmax(220px, 1fr)); gap: 4px 16px; margin: 0 0 12px; padding: 0;
  list-style: none; }
.hidden { position: absolute; left: -9999px; }
.pages { display: flex; justify-content: space-between; gap: 12px; }
.card { padding: 12px; margin: 0 0 12px; border: 1px solid var(--line); border-radius: 8px; } .card p { white-space: pre-wrap; }
.card h3 { margin: 0 0 4px; font-size: 14px; line-height: 20px; font-weight: 600; overflow-wrap: anywhere; }
.card .meta { color: var(--dim); font-size: 13px; margin: 0 0 8px; }
.jump { display: none; }
@media (max-width: 720px) { .columns { grid-template-columns: minmax(0, 1fr); gap: 28px 0; } .jump { display: block; } }
@media (max-width: 480px) { .bar-top { margin-bottom: 0; } .bar-top b { flex: 1; } .bar-top nav { order: 1; flex-basis: 100%; margin: 0 -10px; }
  main.wide { padding-top: 16px; }
  td:has(a) { min-width: 96px; }
  .scroll:not(.cards) th, .scroll:not(.cards) td { padding: 6px 8px; }
  .scroll.cards { border: 0; overflow: visible; } .cards table, .cards tbody, .cards tr, .cards td { display: block; width: 100%; }
  .cards thead { position: absolute; left: -9999px; } .cards tr { padding: 8px 0; } .cards td { padding: 2px 0; text-align: left; }
  .cards td[data-name]::before { content: attr(data-name) ": "; color: var(--dim); }
  .cards td:empty { display: none; } }
)";

struct Entry
{
    std::string_view path;
    std::string_view name;
    /// Further pages that belong to it.
    std::string_view below;
};

constexpr std::array<Entry, 6> navigation = {{{"/admin/people", "People", "/admin/person"},
                                              {"/admin/usage", "Usage", ""},
                                              {"/admin/messages", "Messages", ""},
                                              {"/admin/models", "Models", ""},
                                              {"/admin/logs", "Logs", "/admin/log"},
                                              {"/admin/audit", "Audit trail", ""}}};

/// What the parameter "done" may name.
constexpr std::array<std::pair<std::string_view, std::string_view>, 12> doneTexts = {
    {{"suspend", "Suspended. Nothing of this person is answered any more."},
     {"resume", "Resumed."},
     {"allowance", "The allowance is changed."},
     {"plan", "The plan is changed."},
     {"sign-out", "All sessions have ended."},
     {"delete", "Deleted, with everything of that person. The audit trail keeps a pseudonym."},
     {"message", "Sent. The app shows it when it next asks for its configuration."},
     {"withdraw", "Withdrawn."},
     {"models", "The models are changed."},
     {"prompt", "The default prompt is changed."},
     {"logs", "Changed. Apps learn of it when they next ask for their configuration."},
     {"others", "All your other sessions have ended."}}};

std::string topBar(const std::string &path, const Visit &visit)
{
    std::string html = "<a class=\"skip\" href=\"#main\">To the content</a>\n<header "
                       "class=\"bar-top\"><b>Quellora</b>\n<nav aria-label=\"Pages\">\n";
    for (const Entry &entry : navigation) {
        const bool isHere = path == entry.path || (!entry.below.empty() && path == entry.below);
        html.append("<a href=\"").append(entry.path).append("\"");
        html.append(isHere ? " aria-current=\"page\">" : ">").append(entry.name).append("</a>\n");
    }
    html += "<a href=\"/admin/me\"" +
            std::string(path == "/admin/me" ? " aria-current=\"page\"" : "") +
            ">Your sign-in</a>\n</nav>\n";
    return html + formStart(visit, "/admin/sign-out") + submit("Sign out", "", plainButton) +
           "</form>\n</header>\n";
}

} // namespace

std::int64_t Visit::number(const std::string &name, std::int64_t otherwise) const
{
    const std::string text = fields.empty() ? parameter(name) : field(name);
    return parseCount(trimmed(text)).value_or(otherwise);
}

std::string Visit::field(const std::string &name) const
{
    const auto found = fields.find(name);
    return found == fields.end() ? std::string() : found->second;
}

PageReply PageReply::gone(const std::string &why)
{
    return page("Not found", heading("Not found") + problemNote(why), 404);
}

std::string adminHtml(const std::string &title, const std::string &body, const std::string &path,
                      const Visit *visit)
{
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
           htmlEscaped(title) +
           " — Quellora</title>\n<link rel=\"stylesheet\" href=\"/style.css\">\n" +
           (visit ? "<link rel=\"stylesheet\" href=\"/admin/style.css\">\n" : "") +
           "</head>\n<body>\n" + (visit ? topBar(path, *visit) : "") + "<main id=\"main\"" +
           (visit ? " class=\"wide\"" : "") + ">\n" + body + "</main>\n</body>\n</html>\n";
}

std::string_view adminStyle()
{
    return style;
}

std::string formStart(const Visit &visit, const std::string &action, const char *attributes)
{
    return "<form method=\"post\" action=\"" + action + "\"" + attributes + ">\n" +
           hidden("form", AdminSessions::formToken(visit.session));
}

std::string submit(const std::string &text, const std::string &value, const char *kind)
{
    return "<button type=\"submit\"" +
           (value.empty() ? "" : " name=\"action\" value=\"" + value + "\"") + kind + ">" +
           htmlEscaped(text) + "</button>\n";
}

std::string problemNote(const std::string &problem)
{
    return problem.empty()
               ? ""
               : "<p class=\"note bad\" role=\"alert\">" + htmlEscaped(problem) + "</p>\n";
}

std::string doneNote(const Visit &visit)
{
    const std::string name = visit.parameter("done");
    const auto found = std::find_if(doneTexts.begin(), doneTexts.end(),
                                    [&](const auto &entry) { return entry.first == name; });
    if (found == doneTexts.end())
        return "";
    return "<p class=\"note good\" role=\"status\">" + std::string(found->second) + "</p>\n";
}

std::string heading(const std::string &text)
{
    return "<h1>" + htmlEscaped(text) + "</h1>\n";
}

std::string shortTime(std::int64_t seconds, const char *never)
{
    if (seconds == 0)
        return never;
    std::string text = isoTime(TimePoint(std::chrono::seconds(seconds))).substr(0, 16);
    std::replace(text.begin(), text.end(), 'T', ' ');
    return text;
}

std::map<std::string, std::string> knownNames(AdminStore &store)
{
    std::map<std::string, std::string> names;
    for (const Account &account : store.accounts.all())
        names.emplace(account.person, account.email);
    for (const Administrator &administrator : store.administrators.all())
        names.emplace(administrator.name, administrator.email);
    return names;
}

} // namespace quellora::server
