#include "ServerKit.h"

#include "base/Text.h"

namespace quellora::server {
namespace {

using nlohmann::json;

AnswerOutcome answerUntilStopped(const ModelRequest &, const TextSink &sink, const StopToken &stop)
{
    sink("first words");
    stop.waitForStop([] { return false; });
    return {};
}

class QueryHttp : public testing::Test
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    Config config = testConfig(directory);

    std::unique_ptr<RunningServer> start(const AnswerFunction &answer)
    {
        return std::make_unique<RunningServer>(config, clock, answer);
    }
};

TEST_F(QueryHttp, StreamsChunksAndTheProvidersTokenCounts)
{
    const auto server = start([](const ModelRequest &request, const TextSink &sink, auto) {
        EXPECT_EQ(request.prompt, "What is this?");
        EXPECT_TRUE(request.jpeg.empty());
        sink("Hel");
        sink("lo");
        return completed(60, 40);
    });
    server->accounts().setTokenCap(RunningServer::email, 1000);
    const auto answer = server->query(server->token());
    ASSERT_EQ(answer->status, 200);
    EXPECT_EQ(answer->get_header_value("Content-Type"), "text/event-stream");
    EXPECT_EQ(answer->get_header_value("Cache-Control"), "no-store");
    const auto list = events(answer->body);
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0], json({{"type", "chunk"}, {"text", "Hel"}}));
    EXPECT_EQ(list[1], json({{"type", "chunk"}, {"text", "lo"}}));
    EXPECT_EQ(list[2], json({{"type", "done"},
                             {"tokensRemaining", 900},
                             {"usageWarning75", false},
                             {"usageWarning90", false},
                             {"usedFallback", false},
                             {"tokensUsed", 100}}));
    EXPECT_EQ(server->usage().current(server->account().id).total(), 100);
}

TEST_F(QueryHttp, AnswerWithoutTextEndsWithDone)
{
    const auto server = start([](auto &, auto &, auto) { return completed(1, 0); });
    const auto answer = server->query(server->token());
    EXPECT_EQ(answer->status, 200);
    ASSERT_EQ(events(answer->body).size(), 1U);
    EXPECT_EQ(lastType(answer->body), "done");
}

TEST_F(QueryHttp, TokensAreEstimatedWithoutProviderCounts)
{
    const auto server = start([](auto &, const TextSink &sink, auto) {
        sink(std::string(40, 'x'));
        AnswerOutcome outcome;
        outcome.kind = AnswerOutcome::Kind::Complete;
        return outcome;
    });
    const auto answer = server->query(server->token(), std::string(400, 'p'));
    EXPECT_EQ(events(answer->body).back().at("tokensUsed"), 110);
}

TEST_F(QueryHttp, PictureModelAndPromptReachTheProvider)
{
    config.models = {{"a", "A", "", "up-a", "offline"}, {"b", "B", "", "up-b", "offline"}};
    config.defaultModel = "a";
    config.service.defaultPrompt = "the default";
    std::vector<ModelRequest> seen;
    const auto server = start([&seen](const ModelRequest &request, auto &, auto) {
        seen.push_back(request);
        return completed(1, 1);
    });
    const std::string token = server->token();
    const auto fallback = [&](const httplib::Result &answer) {
        return events(answer->body).back().at("usedFallback").get<bool>();
    };
    EXPECT_FALSE(fallback(
        server->query(token, "p", {{"model", "b"}, {"imageBase64", base64Encoded(fakeJpeg())}})));
    EXPECT_TRUE(fallback(server->query(token, " \n", {{"model", "gone"}})));
    EXPECT_FALSE(fallback(server->query(token, "p", {{"model", nullptr}})));
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(seen[0].model, "up-b");
    EXPECT_EQ(seen[0].jpeg, fakeJpeg());
    EXPECT_EQ(seen[1].model, "up-a");
    EXPECT_EQ(seen[1].prompt, "the default");
    EXPECT_EQ(seen[2].model, "up-a");
}

TEST_F(QueryHttp, MalformedQueriesAreBadRequests)
{
    const auto server = start([](auto &, auto &, auto) { return completed(1, 1); });
    const std::string token = server->token();
    const std::vector<json> bodies = {json::object(),
                                      {{"prompt", 1}},
                                      {{"prompt", "p"}, {"imageBase64", 5}},
                                      {{"prompt", "p"}, {"imageBase64", "%%%"}},
                                      {{"prompt", "p"}, {"imageBase64", "aGVsbG8gd29ybGQ="}},
                                      {{"prompt", "p"}, {"model", 5}},
                                      json::array()};
    for (const json &body : bodies)
        EXPECT_EQ(server->postJson("/api/proxy/query", token, body)->status, 400) << body.dump();
    EXPECT_EQ(server->client()
                  .Post("/api/proxy/query", {{"Authorization", "Bearer " + token}},
                        R"({"prompt":"p"})", "text/plain")
                  ->status,
              415);
    EXPECT_EQ(server->query("")->status, 401);
    EXPECT_EQ(server->usage().queries(server->account().id), 0);
}

TEST_F(QueryHttp, BodiesBeyondTheLimitAreRejected)
{
    config.limits.queryBytes = 4096;
    const auto server = start([](auto &, auto &, auto) { return completed(1, 1); });
    EXPECT_EQ(server->query(server->token(), std::string(5000, 'x'))->status, 413);
    EXPECT_EQ(server->query(server->token(), std::string(3000, 'x'))->status, 200);
}

TEST_F(QueryHttp, OutdatedAppsAreRejected)
{
    config.service.minimumAppVersion = "1.0.1";
    const auto server = start([](auto &, auto &, auto) { return completed(1, 1); });
    EXPECT_EQ(server->query(server->token())->status, 426);
}

TEST_F(QueryHttp, FailuresBeforeTheFirstByteAreHttpErrors)
{
    AnswerOutcome outcome = AnswerOutcome::failed("unreachable");
    const auto server = start([&outcome](auto &, auto &, auto) { return outcome; });
    const std::string token = server->token();
    EXPECT_EQ(server->query(token)->status, 502);
    outcome.kind = AnswerOutcome::Kind::RateLimited;
    outcome.retryAfter = std::chrono::seconds(17);
    const auto limited = server->query(token);
    EXPECT_EQ(limited->status, 429);
    EXPECT_EQ(json::parse(limited->body), json({{"resetInSeconds", 17}}));
    EXPECT_EQ(limited->get_header_value("Retry-After"), "17");
    EXPECT_EQ(server->usage().queries(server->account().id), 0);
}

TEST_F(QueryHttp, ExceptionInAProviderIsABadGateway)
{
    const auto server =
        start([](auto &, auto &, auto) -> AnswerOutcome { throw std::runtime_error("bug"); });
    EXPECT_EQ(server->query(server->token())->status, 502);
}

TEST_F(QueryHttp, FailureMidStreamEndsTheStreamWithoutDone)
{
    const auto server = start([](auto &, const TextSink &sink, auto) {
        sink("Half an ans");
        return AnswerOutcome::failed("gone");
    });
    const auto answer = server->query(server->token());
    ASSERT_TRUE(answer) << httplib::to_string(answer.error());
    EXPECT_EQ(answer->status, 200);
    EXPECT_EQ(answerText(answer->body), "Half an ans");
    EXPECT_EQ(lastType(answer->body), "chunk");
    // The text that was streamed is charged.
    EXPECT_GT(server->usage().current(server->account().id).total(), 0);
}

TEST_F(QueryHttp, KeepAliveCommentsAreSentDuringSilence)
{
    config.timing.keepAlive = std::chrono::milliseconds(50);
    std::promise<void> release;
    auto released = release.get_future().share();
    const auto server = start([released](auto &, const TextSink &sink, auto) {
        released.wait();
        sink("late");
        return completed(1, 1);
    });
    std::string body;
    bool sawComment = false;
    httplib::Request request;
    request.method = "POST";
    request.path = "/api/proxy/query";
    request.body = R"({"prompt":"p"})";
    request.headers = {{"Content-Type", "application/json"},
                       {"Authorization", "Bearer " + server->token()}};
    request.content_receiver = [&](const char *data, size_t length, auto, auto) {
        body.append(data, length);
        if (!sawComment && body.find(": keep-alive\n\n") != std::string::npos) {
            sawComment = true;
            release.set_value();
        }
        return true;
    };
    auto client = server->client();
    const auto answer = client.send(request);
    ASSERT_TRUE(answer);
    EXPECT_TRUE(sawComment);
    EXPECT_EQ(body.rfind(": keep-alive\n\n", 0), 0U);
    EXPECT_EQ(answerText(body), "late");
    EXPECT_EQ(lastType(body), "done");
}

TEST_F(QueryHttp, FailureAfterAKeepAliveEndsTheStream)
{
    config.timing.keepAlive = std::chrono::milliseconds(50);
    const auto server = start([this](auto &, auto &, auto) {
        std::this_thread::sleep_for(config.timing.keepAlive * 8);
        AnswerOutcome outcome;
        outcome.kind = AnswerOutcome::Kind::RateLimited;
        return outcome;
    });
    const auto answer = server->query(server->token());
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_TRUE(events(answer->body).empty());
    EXPECT_NE(answer->body.find(": keep-alive"), std::string::npos);
}

TEST_F(QueryHttp, DisconnectedClientCancelsTheModelAndIsCharged)
{
    std::promise<void> cancelled;
    const auto server = start([&cancelled](auto &, const TextSink &sink, StopToken stop) {
        sink("first words");
        stop.waitForStop([] { return false; });
        cancelled.set_value();
        AnswerOutcome outcome;
        outcome.kind = AnswerOutcome::Kind::Cancelled;
        return outcome;
    });
    httplib::Request request;
    request.method = "POST";
    request.path = "/api/proxy/query";
    request.body = R"({"prompt":"p"})";
    request.headers = {{"Content-Type", "application/json"},
                       {"Authorization", "Bearer " + server->token()}};
    request.content_receiver = [](const char *, size_t, auto, auto) { return false; };
    {
        auto client = server->client();
        EXPECT_FALSE(client.send(request));
    }
    ASSERT_EQ(cancelled.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    server->stop();
    EXPECT_GT(server->usage().current(server->account().id).total(), 0);
}

/// A query in the background that tells of its first bytes.
class RunningQuery
{
public:
    explicit RunningQuery(RunningServer &server) : m_client(server.client())
    {
        m_request.method = "POST";
        m_request.path = "/api/proxy/query";
        m_request.body = R"({"prompt":"p"})";
        m_request.headers = {{"Content-Type", "application/json"},
                             {"Authorization", "Bearer " + server.token()}};
        m_request.content_receiver = [this](const char *data, size_t length, auto, auto) {
            if (m_body.empty())
                m_begun.set_value();
            m_body.append(data, length);
            return true;
        };
        m_sent = std::async(std::launch::async, [this] { return bool(m_client.send(m_request)); });
    }
    void waitForText() { m_begun.get_future().wait(); }
    /// The whole stream; empty when its end was broken off.
    std::string stream() { return m_sent.get() ? m_body : ""; }

private:
    httplib::Client m_client;
    httplib::Request m_request;
    std::string m_body;
    std::promise<void> m_begun;
    std::future<bool> m_sent;
};

TEST_F(QueryHttp, AStoppingServerLetsAnswersEnd)
{
    config.timing.stopGrace = std::chrono::minutes(5);
    std::promise<void> stopping;
    const auto server = start([&](auto &, const TextSink &sink, const StopToken &) {
        sink("first words");
        stopping.get_future().wait();
        sink(", last words");
        return completed(3, 4);
    });
    RunningQuery query(*server);
    query.waitForText();
    auto stopped = std::async(std::launch::async, [&] { server->stop(); });
    // It accepts nothing more.
    while (server->client().Get("/livez")) {
    }
    stopping.set_value();
    const std::string stream = query.stream();
    EXPECT_EQ(answerText(stream), "first words, last words");
    EXPECT_EQ(lastType(stream), "done");
    stopped.get();
    EXPECT_EQ(server->usage().current(server->account().id).total(), 7);
}

TEST_F(QueryHttp, AnswersThatOutlastTheGraceEndWithAnError)
{
    config.timing.stopGrace = std::chrono::milliseconds(0);
    const auto server = start(answerUntilStopped);
    RunningQuery query(*server);
    query.waitForText();
    server->stop();
    const std::string stream = query.stream();
    EXPECT_EQ(answerText(stream), "first words");
    EXPECT_EQ(lastType(stream), "error");
    EXPECT_GT(server->usage().current(server->account().id).total(), 0);
}

TEST_F(QueryHttp, TheGraceCanBeCutShort)
{
    config.timing.stopGrace = std::chrono::hours(1);
    const auto server = start(answerUntilStopped);
    RunningQuery query(*server);
    query.waitForText();
    server->hurry();
    server->stop();
    EXPECT_EQ(lastType(query.stream()), "error");
}

TEST_F(QueryHttp, EventStreamIsNotCompressed)
{
    const auto server = start([](auto &, const TextSink &sink, auto) {
        sink(std::string(5000, 'x'));
        return completed(1, 1);
    });
    const auto answer = server->client().Post(
        "/api/proxy/query",
        {{"Authorization", "Bearer " + server->token()}, {"Accept-Encoding", "gzip, br"}},
        R"({"prompt":"p"})", "application/json");
    EXPECT_EQ(answer->get_header_value("Content-Encoding"), "");
    EXPECT_EQ(answerText(answer->body).size(), 5000U);
}

} // namespace
} // namespace quellora::server
