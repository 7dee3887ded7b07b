#include "admin/UsageChart.h"

#include "base/Text.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <numeric>
#include <optional>
#include <string_view>

namespace quellora::server {
namespace {

using Days = std::chrono::sys_days;

constexpr int mostDays = 400;
/// The drawing's own height; the page stretches it.
constexpr std::int64_t height = 100;

std::optional<Days> parsed(const std::string &day)
{
    if (day.size() != 10 || day[4] != '-' || day[7] != '-')
        return std::nullopt;
    const std::string_view text = day;
    const auto year = parseCount(text.substr(0, 4));
    const auto month = parseCount(text.substr(5, 2));
    const auto date = parseCount(text.substr(8, 2));
    if (!year || !month || !date)
        return std::nullopt;
    const std::chrono::year_month_day parts{std::chrono::year(static_cast<int>(*year)),
                                            std::chrono::month(static_cast<unsigned>(*month)),
                                            std::chrono::day(static_cast<unsigned>(*date))};
    return parts.ok() ? std::optional<Days>(parts) : std::nullopt;
}

std::string written(Days day)
{
    return isoTime(TimePoint(day)).substr(0, 10);
}

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

} // namespace

std::vector<std::string> daysBetween(const std::string &first, const std::string &last)
{
    std::vector<std::string> days;
    const auto begin = parsed(first);
    const auto end = parsed(last);
    if (!begin || !end)
        return days;
    for (Days day = *begin; day <= *end && days.size() < mostDays; day += std::chrono::days(1))
        days.push_back(written(day));
    return days;
}

std::string dayBefore(const std::string &day, int days)
{
    const auto from = parsed(day);
    return from ? written(*from - std::chrono::days(days)) : day;
}

std::vector<DayFigure> tokensPerDay(const std::vector<DailyUsage> &usage,
                                    const std::vector<std::string> &days)
{
    std::map<std::string, std::int64_t> sums;
    for (const DailyUsage &entry : usage)
        sums[entry.day] += entry.tokens.total();
    std::vector<DayFigure> figures;
    for (const std::string &day : days) {
        const auto found = sums.find(day);
        figures.push_back({day, found == sums.end() ? 0 : found->second});
    }
    return figures;
}

std::string grouped(std::int64_t number)
{
    const std::string digits = std::to_string(number);
    const std::size_t sign = number < 0 ? 1 : 0;
    std::string text;
    for (std::size_t at = 0; at < digits.size(); ++at) {
        if (at > sign && (digits.size() - at) % 3 == 0)
            text += ',';
        text += digits[at];
    }
    return text;
}

std::string barChart(const std::string &caption, const std::vector<DayFigure> &figures,
                     const std::string &unit)
{
    if (figures.empty())
        return "";
    const auto highest =
        std::max_element(figures.begin(), figures.end(), [](const auto &left, const auto &right) {
            return left.value < right.value;
        });
    const std::int64_t sum = std::accumulate(
        figures.begin(), figures.end(), std::int64_t{0},
        [](std::int64_t total, const auto &figure) { return total + figure.value; });
    const std::string summary = sum == 0 ? "none"
                                         : grouped(sum) + " " + unit + ", most on " + highest->day +
                                               " with " + grouped(highest->value);
    std::string html =
        "<figure class=\"chart\"><figcaption>" + htmlEscaped(caption) + " <span class=\"dim\">" +
        htmlEscaped(summary) + "</span></figcaption>\n<svg role=\"img\" aria-label=\"" +
        htmlEscaped(caption + ": " + summary) + "\" viewBox=\"0 0 " +
        std::to_string(figures.size() * 10) + " 100\" preserveAspectRatio=\"none\">\n";
    for (std::size_t i = 0; i < figures.size(); ++i) {
        const DayFigure &figure = figures[i];
        // A day with any use shows at least a line.
        const double bar =
            figure.value <= 0
                ? 0
                : std::max(1.5, static_cast<double>(height) * static_cast<double>(figure.value) /
                                    static_cast<double>(highest->value));
        html += "<g><title>" + figure.day + ": " + grouped(figure.value) + " " + unit +
                "</title><rect class=\"ground\" x=\"" + std::to_string(i * 10) +
                "\" y=\"0\" width=\"10\" height=\"100\"/><rect class=\"bar\" x=\"" +
                std::to_string(i * 10 + 1) + "\" y=\"" + number(static_cast<double>(height) - bar) +
                "\" width=\"8\" height=\"" + number(bar) + "\"/></g>\n";
    }
    return html + "</svg>\n<div class=\"axis\" aria-hidden=\"true\"><span>" + figures.front().day +
           "</span><span>" + figures.back().day + "</span></div></figure>\n";
}

std::string allowanceBar(std::int64_t used, std::int64_t cap)
{
    if (cap <= 0)
        return "";
    const double share =
        std::clamp(100.0 * static_cast<double>(used) / static_cast<double>(cap), 0.0, 100.0);
    const char *kind = share >= 100 ? "spent" : share >= 90 ? "high" : "bar";
    return "<svg class=\"share\" role=\"img\" aria-label=\"" +
           std::to_string(static_cast<int>(share)) +
           " % used\" viewBox=\"0 0 100 4\" preserveAspectRatio=\"none\"><rect class=\"track\" "
           "width=\"100\" height=\"4\"/><rect class=\"" +
           kind + "\" width=\"" + number(share) + "\" height=\"4\"/></svg>";
}

} // namespace quellora::server
