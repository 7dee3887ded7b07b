#include "admin/AdminPage.h"
#include "admin/UsageChart.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <map>

namespace quellora::server {
namespace {

constexpr std::array<int, 4> ranges = {7, 30, 90, 365};

struct Sum
{
    TokenCount tokens;
    std::int64_t queries = 0;

    void add(const DailyUsage &usage)
    {
        tokens.input += usage.tokens.input;
        tokens.output += usage.tokens.output;
        queries += usage.queries;
    }
};

using Sums = std::map<std::string, Sum>;

std::string modelName(const std::string &model)
{
    return model.empty() ? "not recorded" : model;
}

/// A table of sums with names that are HTML, the highest first or in the order of the names.
std::string table(const std::string &caption, const std::string &column, const Sums &sums,
                  bool byName)
{
    std::vector<std::pair<std::string, Sum>> rows(sums.begin(), sums.end());
    if (byName)
        std::reverse(rows.begin(), rows.end());
    else
        std::stable_sort(rows.begin(), rows.end(), [](const auto &left, const auto &right) {
            return left.second.tokens.total() > right.second.tokens.total();
        });
    // Addresses do not fit a phone beside three columns.
    const bool isLinked = column == "Person";
    std::string html = "<h2>" + caption + "</h2>\n<div class=\"scroll" +
                       (isLinked ? " cards" : "") + "\"><table><thead><tr><th scope=\"col\">" +
                       column +
                       "</th><th scope=\"col\" class=\"num\">Questions</th><th scope=\"col\" "
                       "class=\"num\">Tokens in</th><th scope=\"col\" class=\"num\">Tokens "
                       "out</th></tr></thead><tbody>\n";
    for (const auto &[name, sum] : rows)
        html += std::string(byName ? "<tr><td class=\"time\">" : "<tr><td>") + name +
                "</td><td class=\"num\" data-name=\"Questions\">" + grouped(sum.queries) +
                "</td><td class=\"num\" data-name=\"Tokens in\">" + grouped(sum.tokens.input) +
                "</td><td class=\"num\" data-name=\"Tokens out\">" + grouped(sum.tokens.output) +
                "</td></tr>\n";
    return html + "</tbody></table></div>\n";
}

std::string filterForm(const Visit &visit, int days, const std::vector<std::string> &models,
                       const std::string &model, std::int64_t id)
{
    std::string html =
        "<form method=\"get\" action=\"/admin/usage\" class=\"row\"><label>Person<select "
        "name=\"id\"><option value=\"0\">Everybody</option>\n";
    for (const Account &account : visit.store.accounts.all())
        html += "<option value=\"" + std::to_string(account.id) + "\"" +
                (account.id == id ? " selected>" : ">") + htmlEscaped(account.email) +
                "</option>\n";
    html += "</select></label>\n<label>Model<select name=\"model\"><option value=\"\">All "
            "models</option>\n";
    for (const std::string &name : models) {
        if (!name.empty())
            html += "<option" + std::string(name == model ? " selected>" : ">") +
                    htmlEscaped(name) + "</option>\n";
    }
    html += "</select></label>\n<label>Time<select name=\"days\">\n";
    for (const int range : ranges)
        html += "<option value=\"" + std::to_string(range) + "\"" +
                (range == days ? " selected>" : ">") + "Last " + std::to_string(range) +
                " days</option>\n";
    return html + "</select></label>\n<button type=\"submit\"" + plainButton +
           ">Show</button></form>\n";
}

PageReply usage(const Visit &visit)
{
    const std::int64_t id = visit.number("id", 0);
    const std::string model = visit.parameter("model");
    const std::int64_t wanted = visit.number("days", 30);
    const int days = std::find(ranges.begin(), ranges.end(), wanted) == ranges.end()
                         ? 30
                         : static_cast<int>(wanted);
    const std::string today = isoTime(visit.store.clock.now()).substr(0, 10);
    const auto all = daysBetween(dayBefore(today, days - 1), today);
    std::vector<DailyUsage> entries = visit.store.usage.daily(all.front(), all.back(), id);

    std::vector<std::string> models;
    for (const DailyUsage &entry : entries) {
        if (std::find(models.begin(), models.end(), entry.model) == models.end())
            models.push_back(entry.model);
    }
    std::sort(models.begin(), models.end());
    if (!model.empty())
        std::erase_if(entries, [&](const DailyUsage &entry) { return entry.model != model; });

    Sums byPerson;
    Sums byModel;
    Sums byDay;
    std::map<std::int64_t, std::string> links;
    for (const Account &account : visit.store.accounts.all())
        links[account.id] = "<a href=\"/admin/usage?id=" + std::to_string(account.id) +
                            "&amp;days=" + std::to_string(days) + "\">" +
                            htmlEscaped(account.email) + "</a>";
    for (const DailyUsage &entry : entries) {
        byPerson[links[entry.accountId]].add(entry);
        byModel[htmlEscaped(modelName(entry.model))].add(entry);
        byDay[entry.day].add(entry);
    }
    std::string body = heading("Usage") + filterForm(visit, days, models, model, id) +
                       barChart("Tokens per day", tokensPerDay(entries, all), "tokens");
    if (entries.empty())
        return PageReply::page("Usage", body + "<p>No question was answered in this time.</p>\n");
    body += "<div class=\"columns\"><section>\n" +
            (id == 0 ? table("By person", "Person", byPerson, false) : "") +
            table("By model", "Model", byModel, false) + "</section><section>\n" +
            table("By day", "Day", byDay, true) + "</section></div>\n";
    return PageReply::page("Usage", body);
}

} // namespace

void addUsagePages(AdminPages &all)
{
    all.pages["/admin/usage"] = usage;
}

} // namespace quellora::server
