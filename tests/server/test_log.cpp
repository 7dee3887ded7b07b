#include "base/Log.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <functional>
#include <regex>
#include <thread>

namespace quellora::server {
namespace {

using nlohmann::json;

/// The lines that @p work logs in JSON.
std::string logged(Log::Format format, const std::function<void()> &work)
{
    testing::internal::CaptureStderr();
    Log::setFormat(format);
    work();
    Log::setFormat(Log::Format::Text);
    return testing::internal::GetCapturedStderr();
}

json entryOf(const std::string &message)
{
    return json::parse(logged(Log::Format::Json, [&] { Log::event(message); }));
}

TEST(LogFormat, JsonTellsLevelSourceAndMessageApart)
{
    const json plain = entryOf("[Serve] Stopping");
    EXPECT_EQ(plain.at("level"), "info");
    EXPECT_EQ(plain.at("source"), "Serve");
    EXPECT_EQ(plain.at("message"), "Stopping");
    EXPECT_FALSE(plain.contains("request"));
    EXPECT_TRUE(std::regex_match(plain.at("time").get<std::string>(),
                                 std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)")));
    EXPECT_EQ(entryOf("[A] WARNING: x").at("level"), "warning");
    EXPECT_EQ(entryOf("[A] ERROR: x").at("level"), "error");
    EXPECT_EQ(entryOf("[A] ERROR: x").at("message"), "x");
    EXPECT_EQ(entryOf("no source").at("message"), "no source");
    EXPECT_EQ(entryOf("[unfinished").at("message"), "[unfinished");
}

TEST(LogFormat, WhateverIsLoggedStaysOneLine)
{
    const std::string lines = logged(
        Log::Format::Json, [] { Log::event("[A] one\n{\"level\":\"error\"}\r\"quoted\" \xFF"); });
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1);
    EXPECT_EQ(json::parse(lines).at("message"),
              "one {\"level\":\"error\"} \"quoted\" \xEF\xBF\xBD");
    const std::string text = logged(Log::Format::Text, [] { Log::event("[A] one\n[B] two"); });
    EXPECT_TRUE(
        std::regex_match(text, std::regex(R"(\[\d\d:\d\d:\d\d\.\d{3}\] \[A\] one \[B\] two\n)")));
}

TEST(LogFormat, LinesNameTheRequestOfTheirThread)
{
    const std::string lines = logged(Log::Format::Json, [] {
        const LoggedRequest outer("0123-4567");
        {
            const LoggedRequest inner("89ab-cdef");
            Log::event("[A] inner");
        }
        Log::event("[A] outer");
        std::thread([] { Log::event("[A] elsewhere"); }).join();
    });
    std::istringstream input(lines);
    std::string line;
    std::vector<json> entries;
    while (std::getline(input, line))
        entries.push_back(json::parse(line));
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].at("request"), "89ab-cdef");
    EXPECT_EQ(entries[1].at("request"), "0123-4567");
    EXPECT_FALSE(entries[2].contains("request"));
    EXPECT_EQ(LoggedRequest::current(), "");
}

TEST(LogFormat, AnsweredRequestsAreEntriesInJsonOnly)
{
    const auto answer = [] { Log::request("GET", "/login", 200, 0.0125); };
    EXPECT_EQ(logged(Log::Format::Text, answer), "");
    const json entry = json::parse(logged(Log::Format::Json, answer));
    EXPECT_EQ(entry.at("method"), "GET");
    EXPECT_EQ(entry.at("route"), "/login");
    EXPECT_EQ(entry.at("status"), 200);
    EXPECT_EQ(entry.at("milliseconds"), 12.5);
}

TEST(LogFormat, OnlyAPlainIdIsTakenFromOutside)
{
    EXPECT_EQ(LoggedRequest::idFor("7F000001:9A2C_0A000001"), "7F000001:9A2C_0A000001");
    for (const char *offered : {"", "short", "0123456789012345678901234567890123456789",
                                "not hexadecimal", "0123\n4567", "wxyz-0123-token"}) {
        const std::string id = LoggedRequest::idFor(offered);
        EXPECT_NE(id, offered);
        EXPECT_EQ(id.size(), 36U);
    }
}

} // namespace
} // namespace quellora::server
