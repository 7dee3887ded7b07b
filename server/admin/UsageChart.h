#pragma once

#include "store/UsageLedger.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quellora::server {

/// One bar of a chart.
struct DayFigure
{
    /// "YYYY-MM-DD".
    std::string day;
    std::int64_t value = 0;
};

/// The days from @p first to @p last, both "YYYY-MM-DD" and included; at most 400.
std::vector<std::string> daysBetween(const std::string &first, const std::string &last);
/// The day that is @p days before @p day.
std::string dayBefore(const std::string &day, int days);
/// The tokens of each of @p days.
std::vector<DayFigure> tokensPerDay(const std::vector<DailyUsage> &usage,
                                    const std::vector<std::string> &days);
/// "1,234,567".
std::string grouped(std::int64_t number);
/// A bar chart as SVG inside a figure. @p caption is HTML-escaped here; the image's alternative
/// text says sum, highest value and its day, and each bar its own.
std::string barChart(const std::string &caption, const std::vector<DayFigure> &figures,
                     const std::string &unit);
/// How much of an allowance is used, as a bar; @p cap 0 means no limit and gives no bar.
std::string allowanceBar(std::int64_t used, std::int64_t cap);

} // namespace quellora::server
