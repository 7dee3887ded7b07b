#include "ServerKit.h"

namespace quellora::server {
namespace {

using nlohmann::json;

class QueryLimits : public testing::Test
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    Config config = testConfig(directory);

    std::unique_ptr<RunningServer> start(AnswerFunction answer)
    {
        return std::make_unique<RunningServer>(config, clock, std::move(answer));
    }
};

TEST_F(QueryLimits, SpentCapIsReported)
{
    const auto server = start([](auto &, auto &, auto) { return completed(600, 400); });
    server->accounts().setTokenCap(RunningServer::email, 1000);
    const std::string token = server->token();
    const json done = events(server->query(token)->body).back();
    EXPECT_EQ(done.at("tokensRemaining"), 0);
    EXPECT_EQ(done.at("usageWarning90"), true);
    const auto refused = server->query(token);
    EXPECT_EQ(refused->status, 429);
    EXPECT_EQ(json::parse(refused->body), json({{"tokensRemaining", 0}}));
    // Raising the cap takes effect at once, and so does the next month.
    server->accounts().setTokenCap(RunningServer::email, 5000);
    EXPECT_EQ(server->query(token)->status, 200);
    server->accounts().setTokenCap(RunningServer::email, 1000);
    clock.advance(std::chrono::hours(24 * 20));
    EXPECT_EQ(server->query(token)->status, 200);
}

TEST_F(QueryLimits, WarningsDependOnTheUsage)
{
    const auto server = start([](auto &, auto &, auto) { return completed(800, 0); });
    server->accounts().setTokenCap(RunningServer::email, 1000);
    const json done = events(server->query(server->token())->body).back();
    EXPECT_EQ(done.at("tokensRemaining"), 200);
    EXPECT_EQ(done.at("usageWarning75"), true);
    EXPECT_EQ(done.at("usageWarning90"), false);
}

TEST_F(QueryLimits, AccountWithoutCapIsNeverRejectedForUsage)
{
    const auto server = start([](auto &, auto &, auto) { return completed(1000000, 1000000); });
    const std::string token = server->token();
    EXPECT_EQ(server->query(token)->status, 200);
    const json done = events(server->query(token)->body).back();
    EXPECT_GT(done.at("tokensRemaining").get<std::int64_t>(), 0);
}

TEST_F(QueryLimits, AnswerFarBeyondTheCapEndsWithAnErrorEvent)
{
    std::atomic<bool> stopped{false};
    const auto server = start([&stopped](auto &, const TextSink &sink, StopToken) {
        for (int i = 0; i < 100000; ++i) {
            if (!sink(std::string(400, 'x'))) {
                stopped = true;
                break;
            }
        }
        return completed(1, 1);
    });
    server->accounts().setTokenCap(RunningServer::email, 1000);
    const auto answer = server->query(server->token());
    EXPECT_EQ(answer->status, 200);
    EXPECT_EQ(lastType(answer->body), "error");
    EXPECT_FALSE(events(answer->body).back().at("message").get<std::string>().empty());
    EXPECT_LT(answer->body.size(), 20000U);
    EXPECT_EQ(server->query(server->token())->status, 429);
}

TEST_F(QueryLimits, QueriesPerMinuteAreLimited)
{
    config.limits.queriesPerMinute = 2;
    const auto server = start([](auto &, auto &, auto) { return completed(1, 1); });
    const std::string token = server->token();
    EXPECT_EQ(server->query(token)->status, 200);
    clock.advance(std::chrono::seconds(20));
    EXPECT_EQ(server->query(token)->status, 200);
    const auto refused = server->query(token);
    EXPECT_EQ(refused->status, 429);
    EXPECT_EQ(json::parse(refused->body), json({{"resetInSeconds", 40}}));
    clock.advance(std::chrono::seconds(40));
    EXPECT_EQ(server->query(token)->status, 200);
}

TEST_F(QueryLimits, ConcurrentAnswersAreLimited)
{
    config.limits.concurrentQueries = 1;
    std::promise<void> started;
    std::promise<void> release;
    auto released = release.get_future().share();
    const auto server = start([&started, released](auto &, const TextSink &sink, auto) {
        sink("x");
        started.set_value();
        released.wait();
        return completed(1, 1);
    });
    const std::string token = server->token();
    auto first = std::async(std::launch::async, [&] { return server->query(token)->status; });
    started.get_future().wait();
    const auto refused = server->query(token);
    EXPECT_EQ(refused->status, 429);
    EXPECT_TRUE(json::parse(refused->body).at("resetInSeconds").is_number_integer());
    release.set_value();
    EXPECT_EQ(first.get(), 200);
}

} // namespace
} // namespace quellora::server
