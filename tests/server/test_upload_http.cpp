#include "ServerKit.h"

#include <fstream>
#include <sstream>

namespace quellora::server {
namespace {

using nlohmann::json;

class UploadHttp : public testing::Test
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    Config config = testConfig(directory);

    static json telemetryRecord()
    {
        return {{"model_used", "unknown"},
                {"used_fallback", false},
                {"prompt_chars", 12},
                {"has_image", true},
                {"response_time_ms", 1234.5},
                {"time_to_first_token_ms", 300.25},
                {"input_tokens", 0},
                {"output_tokens", 0},
                {"total_tokens", 100},
                {"tokens_used_before", 0},
                {"tokens_remaining_after", 900},
                {"token_cap", 1000},
                {"over_cap", false},
                {"app_version", "1.0.0"},
                {"platform", "mac"}};
    }

    std::int64_t storedRecords() const
    {
        std::int64_t count = 0;
        SqliteDatabase(config.dataFile)
            .query("SELECT count(*) FROM telemetry", {},
                   [&](const Database::Row &row) { count = row.integer(0); });
        return count;
    }

    static httplib::Result upload(const RunningServer &server, const std::string &token,
                                  const std::string &text)
    {
        return server.client().Post("/api/logs/app", {{"Authorization", "Bearer " + token}}, text,
                                    "text/plain");
    }
};

TEST_F(UploadHttp, TelemetryIsStoredWithoutUnknownFields)
{
    RunningServer server(config, clock);
    json record = telemetryRecord();
    record["prompt"] = "private words";
    EXPECT_EQ(server.postJson("/api/telemetry/query", server.token(), record)->status, 202);
    EXPECT_EQ(storedRecords(), 1);
    std::string stored;
    server.database().query("SELECT record FROM telemetry", {},
                            [&](const Database::Row &row) { stored = row.text(0); });
    EXPECT_NE(stored.find("1234.5"), std::string::npos);
    EXPECT_EQ(stored.find("private words"), std::string::npos);
}

TEST_F(UploadHttp, IntegersAreAcceptedAsDoubles)
{
    RunningServer server(config, clock);
    json record = telemetryRecord();
    record["response_time_ms"] = 1000;
    EXPECT_EQ(server.postJson("/api/telemetry/query", server.token(), record)->status, 202);
}

TEST_F(UploadHttp, EveryTelemetryFieldIsRequiredAndTyped)
{
    config.limits.authRequestsPerMinute = 1000;
    RunningServer server(config, clock);
    const std::string token = server.token();
    const json record = telemetryRecord();
    for (const auto &[name, value] : record.items()) {
        json missing = record;
        missing.erase(name);
        EXPECT_EQ(server.postJson("/api/telemetry/query", token, missing)->status, 400) << name;
        json wrong = record;
        wrong[name] = json::object();
        EXPECT_EQ(server.postJson("/api/telemetry/query", token, wrong)->status, 400) << name;
    }
    json longText = record;
    longText["model_used"] = std::string(201, 'x');
    EXPECT_EQ(server.postJson("/api/telemetry/query", token, longText)->status, 400);
    EXPECT_EQ(server.postJson("/api/telemetry/query", "", record)->status, 401);
    EXPECT_EQ(storedRecords(), 0);
}

TEST_F(UploadHttp, LogsAreAcceptedWith202AndStoredVerbatim)
{
    RunningServer server(config, clock);
    const std::string text = "[09:05:03.007] x\n\xE2\x9C\x93 \n";
    EXPECT_EQ(upload(server, server.token(), text)->status, 202);
    UploadedLogs logs(server.database(), clock, 1);
    ASSERT_EQ(logs.list(server.account().id).size(), 1U);
    std::string stored;
    logs.read(logs.list().front().id, [&](std::string_view piece) {
        stored += piece;
        return true;
    });
    EXPECT_EQ(stored, text);
}

TEST_F(UploadHttp, LogsNeedASessionAndABodyWithinTheLimit)
{
    config.limits.logBytes = 1024;
    config.limits.queryBytes = 1U << 20U;
    RunningServer server(config, clock);
    const std::string token = server.token();
    EXPECT_EQ(upload(server, "", "x")->status, 401);
    EXPECT_EQ(upload(server, token, "")->status, 400);
    EXPECT_EQ(upload(server, token, std::string(1025, 'x'))->status, 413);
    EXPECT_EQ(upload(server, token, std::string(1024, 'x'))->status, 202);
}

TEST_F(UploadHttp, UploadsAreRateLimited)
{
    RunningServer server(config, clock);
    const std::string token = server.token();
    int status = 202;
    int accepted = 0;
    while (accepted < 1000 && status == 202) {
        status = upload(server, token, "x")->status;
        accepted += status == 202 ? 1 : 0;
    }
    EXPECT_EQ(status, 429);
    EXPECT_EQ(accepted, 120);
}

TEST_F(UploadHttp, LogThatCannotBeStoredIsAServerError)
{
    RunningServer server(config, clock);
    server.database().execute("DROP TABLE uploaded_log_parts");
    EXPECT_EQ(upload(server, server.token(), "x")->status, 500);
}

} // namespace
} // namespace quellora::server
