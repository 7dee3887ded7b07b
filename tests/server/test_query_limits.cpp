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

    std::unique_ptr<RunningServer> start(const AnswerFunction &answer)
    {
        return std::make_unique<RunningServer>(config, clock, answer);
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
    const auto server = start([&stopped](auto &, const TextSink &sink, const StopToken &) {
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

TEST_F(QueryLimits, AnswerIsCutBetweenCharactersWhereTheReservationEnds)
{
    const auto server = start([](auto &, const TextSink &sink, const StopToken &) {
        std::string text;
        for (int i = 0; i < 5000; ++i)
            text += "\xE2\x9C\x93";
        sink(text);
        return completed(1, 1);
    });
    server->accounts().setTokenCap(RunningServer::email, 1000);
    const auto answer = server->query(server->token());
    EXPECT_EQ(lastType(answer->body), "error");
    const std::string text = answerText(answer->body);
    EXPECT_EQ(text.size() % 3, 0U);
    EXPECT_EQ(text.find("\xEF\xBF\xBD"), std::string::npos);
    const std::int64_t used = server->usage().current(server->account().id).total();
    EXPECT_LT(used, 1250);
    EXPECT_GE(used, 1248);
    // The question has 13 bytes.
    EXPECT_EQ(used, 4 + static_cast<std::int64_t>((text.size() + 3) / 4));
}

TEST_F(QueryLimits, LongAnswerThatIsCoveredArrivesWhole)
{
    const std::string text(300000, 'x');
    const auto server = start([&text](auto &, const TextSink &sink, const StopToken &) {
        sink(text);
        AnswerOutcome outcome;
        outcome.kind = AnswerOutcome::Kind::Complete;
        return outcome;
    });
    server->accounts().setTokenCap(RunningServer::email, 75000);
    const auto answer = server->query(server->token());
    EXPECT_EQ(lastType(answer->body), "done");
    EXPECT_EQ(answerText(answer->body), text);
    EXPECT_EQ(server->usage().current(server->account().id).total(), 75004);
    EXPECT_EQ(server->answers().running(server->account().id), 0);
}

TEST_F(QueryLimits, QuestionTooLongForWhatIsLeftIsRefusedBeforeTheModelIsAsked)
{
    bool isAsked = false;
    const auto server = start([&isAsked](auto &, auto &, auto) {
        isAsked = true;
        return completed(1, 1);
    });
    server->accounts().setTokenCap(RunningServer::email, 1000);
    const auto refused = server->query(server->token(), std::string(5000, 'p'));
    EXPECT_EQ(refused->status, 429);
    EXPECT_EQ(json::parse(refused->body), json({{"tokensRemaining", 1000}}));
    EXPECT_FALSE(isAsked);
    EXPECT_EQ(server->answers().running(server->account().id), 0);
}

TEST_F(QueryLimits, AnswerThatFailsBeforeItsTextReservesNothingMore)
{
    config.limits.concurrentQueries = 1;
    const auto server =
        start([](auto &, auto &, auto) { return AnswerOutcome::failed("unreachable"); });
    const std::string token = server->token();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(server->query(token)->status, 502);
    EXPECT_EQ(server->answers().running(server->account().id), 0);
    EXPECT_EQ(server->usage().queries(server->account().id), 0);
}

TEST_F(QueryLimits, AnswerThatCannotBeCountedEndsAndIsCountedLater)
{
    RunningServer *running = nullptr;
    const auto server = start([&running](auto &, const TextSink &sink, auto) {
        sink("text");
        running->database().execute("ALTER TABLE usage_daily RENAME TO hidden");
        return completed(60, 40);
    });
    running = server.get();
    server->accounts().setTokenCap(RunningServer::email, 1000);
    const json done = events(server->query(server->token())->body).back();
    EXPECT_EQ(done.at("type"), "done");
    EXPECT_EQ(done.at("tokensUsed"), 100);
    EXPECT_EQ(server->usage().current(server->account().id).total(), 0);
    server->database().execute("ALTER TABLE hidden RENAME TO usage_daily");
    server->answers().renew();
    EXPECT_EQ(server->usage().current(server->account().id).total(), 100);
}

TEST_F(QueryLimits, AnswerThatCannotReserveMoreEndsWithAnError)
{
    config.timing.keepAlive = std::chrono::milliseconds(30);
    RunningServer *running = nullptr;
    const auto server = start([&running](auto &, const TextSink &sink, StopToken stop) {
        running->database().execute("ALTER TABLE answers RENAME TO hidden");
        sink(std::string(20000, 'x'));
        stop.waitForStop([] { return false; });
        return AnswerOutcome{};
    });
    running = server.get();
    const auto answer = server->query(server->token());
    EXPECT_EQ(lastType(answer->body), "error");
    EXPECT_NE(answer->body.find("cannot reach its data"), std::string::npos);
    server->database().execute("ALTER TABLE hidden RENAME TO answers");
    server->answers().renew();
    EXPECT_EQ(server->answers().running(server->account().id), 0);
    EXPECT_EQ(server->usage().queries(server->account().id), 1);
}

/// What is done to an account while it gets an answer, and what the app is told.
struct Revoked
{
    const char *name;
    void (*act)(RunningServer &server);
    int status;
    const char *message;
};

class RevokedAnswers : public QueryLimits, public testing::WithParamInterface<Revoked>
{
protected:
    std::promise<void> asked;

    std::unique_ptr<RunningServer> startSaying(const std::string &text)
    {
        return start([this, text](auto &, const TextSink &sink, StopToken stop) {
            if (!text.empty())
                sink(text);
            asked.set_value();
            stop.waitForStop([] { return false; });
            return AnswerOutcome{};
        });
    }
};

TEST_P(RevokedAnswers, EndWithAnEvent)
{
    const auto server = startSaying("first words");
    const std::string token = server->token();
    auto answer = std::async(std::launch::async, [&] { return server->query(token)->body; });
    asked.get_future().wait();
    GetParam().act(*server);
    const std::string body = answer.get();
    EXPECT_EQ(answerText(body), "first words");
    EXPECT_EQ(lastType(body), "error");
    EXPECT_NE(body.find(GetParam().message), std::string::npos) << body;
    EXPECT_EQ(server->query(token)->status, GetParam().status);
}

TEST_P(RevokedAnswers, AreRefusedBeforeTheirFirstText)
{
    const auto server = startSaying("");
    const std::string token = server->token();
    auto answer = std::async(std::launch::async, [&] { return server->query(token)->status; });
    asked.get_future().wait();
    GetParam().act(*server);
    EXPECT_EQ(answer.get(), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, RevokedAnswers,
    testing::Values(
        Revoked{"Suspended",
                [](RunningServer &server) {
                    server.accounts().setSuspended(RunningServer::email, true);
                },
                403, "suspended"},
        Revoked{"SignedOut",
                [](RunningServer &server) { server.sessions().revokeAll(server.account().id); },
                401, "signed out"},
        Revoked{"NewPassword",
                [](RunningServer &server) {
                    server.accounts().setPassword(RunningServer::email, "another password");
                },
                401, "signed out"},
        Revoked{"Deleted",
                [](RunningServer &server) { server.accounts().remove(RunningServer::email); }, 401,
                "deleted"}),
    [](const auto &reason) { return std::string(reason.param.name); });

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
