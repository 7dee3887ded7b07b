#include "base/WorkerPool.h"
#include "model/AnswerChain.h"
#include "model/EventLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <future>
#include <mutex>

namespace quellora::server {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Kind = AnswerOutcome::Kind;
using Next = FailedAttempt::Next;

AnswerOutcome complete(std::optional<TokenCount> tokens = std::nullopt)
{
    AnswerOutcome outcome;
    outcome.kind = Kind::Complete;
    outcome.tokens = tokens;
    return outcome;
}

AnswerOutcome refused(ProviderFault fault, int status = 500, int wait = 0)
{
    AnswerOutcome outcome =
        AnswerOutcome::failed("refused", {UpstreamProblem::Kind::Refused, status, fault});
    if (fault == ProviderFault::RateLimited)
        outcome.kind = Kind::RateLimited;
    outcome.retryAfter = seconds(wait);
    return outcome;
}

AnswerOutcome problem(UpstreamProblem::Kind kind)
{
    return AnswerOutcome::failed("broken", {kind});
}

/// What a model does when it is asked; without an outcome it says nothing more.
struct Step
{
    std::string text;
    std::optional<AnswerOutcome> outcome;
};

/// A model that follows a script.
struct Model
{
    explicit Model(std::string name) : id(std::move(name)) {}

    std::string id;
    std::deque<Step> steps;
    std::vector<ModelRequest> questions;
    std::atomic<int> asked{0};
    std::atomic<int> pauses{0};
    std::atomic<int> resumes{0};
    std::shared_ptr<CircuitBreaker> breaker;

    class Running : public RunningAnswer
    {
    public:
        explicit Running(Model &model) : m_model(model) {}
        void pause() override { ++m_model.pauses; }
        void resume() override { ++m_model.resumes; }
        std::shared_ptr<bool> alive = std::make_shared<bool>();

    private:
        Model &m_model;
    };

    ChainLink link()
    {
        return {id, "up-" + id,
                [this](ModelRequest request) {
                    questions.push_back(std::move(request));
                    return [this](AnswerSink &sink, const AnswerPlace &place) {
                        ++asked;
                        const Step step = steps.front();
                        steps.pop_front();
                        auto running = std::make_unique<Running>(*this);
                        place.loop.post([&sink, step, alive = std::weak_ptr(running->alive)] {
                            if (!alive.expired() && !step.text.empty())
                                sink.answerGrows(step.text);
                            if (!alive.expired() && step.outcome)
                                sink.answerEnds(*step.outcome);
                        });
                        return running;
                    };
                },
                breaker};
    }
};

/// What a client of the chain gets to know.
struct Record : AnswerSink
{
    std::string text;
    std::vector<std::string> models;
    std::vector<std::string> failures;
    std::promise<AnswerOutcome> ended;
    std::promise<void> started;
    std::promise<void> failed;
    int ends = 0;

    void attemptFails(const FailedAttempt &attempt) override
    {
        if (failures.empty())
            failed.set_value();
        failures.push_back(attempt.model + (attempt.wasSpared ? " spared" : "") +
                           (attempt.next == Next::Retry      ? " retry"
                            : attempt.next == Next::Fallback ? " fallback"
                                                             : " end"));
    }
    void answeredBy(const std::string &model) override
    {
        EXPECT_TRUE(text.empty());
        models.push_back(model);
    }
    void answerGrows(std::string_view piece) override
    {
        if (text.empty())
            started.set_value();
        text += piece;
    }
    void answerEnds(const AnswerOutcome &outcome) override
    {
        if (++ends == 1)
            ended.set_value(outcome);
    }
};

using Strings = std::vector<std::string>;

class AnswerChain : public testing::Test
{
public:
    ~AnswerChain() override { drop(); }

protected:
    AnswerChain()
    {
        limits.firstWait = milliseconds(1);
        limits.random = [] { return 0.0; };
    }

    ModelRequest question() const
    {
        ModelRequest request;
        request.prompt = std::string(400, 'p');
        request.jpeg = "picture";
        return request;
    }
    void begin(std::vector<ChainLink> links)
    {
        const AnswerStart start = answerChain(std::move(links), limits)(question());
        loop.postAndWait([&] { answer = start(record, {loop, workers}); });
    }
    void drop()
    {
        loop.postAndWait([this] { answer.reset(); });
    }
    AnswerOutcome outcomeOf(std::vector<ChainLink> links)
    {
        begin(std::move(links));
        auto ended = record.ended.get_future();
        EXPECT_EQ(ended.wait_for(seconds(20)), std::future_status::ready);
        const AnswerOutcome outcome = ended.get();
        drop();
        EXPECT_EQ(record.ends, 1);
        return outcome;
    }
    /// Occupies the worker until the promise is kept.
    std::promise<void> heldWorker()
    {
        std::promise<void> hold;
        std::promise<void> holding;
        EXPECT_TRUE(workers.post([&, held = hold.get_future().share()] {
            holding.set_value();
            held.wait();
        }));
        holding.get_future().wait();
        return hold;
    }
    std::shared_ptr<CircuitBreaker> opened(const AnswerOutcome &outcome)
    {
        auto breaker = breakers.of("x", "m");
        while (auto attempt = breaker->admit())
            attempt->failed(outcome.problem, seconds(0));
        return breaker;
    }

    CircuitBreaker::Time now{};
    CircuitBreakers breakers{BreakerLimits{}, [this] { return now; }};
    ChainLimits limits;
    Model a{"a"};
    Model b{"b"};
    Model c{"c"};
    EventLoop loop;
    WorkerPool workers{1, 1};
    Record record;
    std::unique_ptr<RunningAnswer> answer;
};

TEST_F(AnswerChain, AsksTheSameModelAgainBeforeItsFirstText)
{
    a.steps = {{"", refused(ProviderFault::Overloaded)},
               {"", problem(UpstreamProblem::Kind::Interrupted)},
               {"Hello", complete(TokenCount{5, 6})}};
    const AnswerOutcome outcome = outcomeOf({a.link()});
    EXPECT_EQ(outcome.kind, Kind::Complete);
    EXPECT_EQ(outcome.tokens->total(), 11);
    EXPECT_EQ(record.text, "Hello");
    EXPECT_EQ(record.models, Strings{"a"});
    EXPECT_EQ(record.failures, (Strings{"a retry", "a retry"}));
    EXPECT_EQ(a.questions.size(), 1U);
    EXPECT_EQ(a.questions.front().model, "up-a");
}

TEST_F(AnswerChain, AsksNobodyAgainAfterTheFirstText)
{
    a.steps = {{"Hal", refused(ProviderFault::Overloaded)}};
    const AnswerOutcome outcome = outcomeOf({a.link(), b.link()});
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_EQ(outcome.problem.fault, ProviderFault::Overloaded);
    EXPECT_EQ(record.text, "Hal");
    EXPECT_EQ(record.failures, Strings{"a end"});
    EXPECT_EQ(a.asked, 1);
    EXPECT_EQ(b.asked, 0);
}

TEST_F(AnswerChain, AsksTheNextModelWithTheWholeQuestion)
{
    const Step busy = {"", refused(ProviderFault::ServerError)};
    a.steps = {busy, busy, busy};
    b.steps = {{"", refused(ProviderFault::UnknownModel)}};
    c.steps = {{"Hello", complete()}};
    EXPECT_EQ(outcomeOf({a.link(), b.link(), c.link()}).kind, Kind::Complete);
    EXPECT_EQ(record.text, "Hello");
    EXPECT_EQ(record.models, Strings{"c"});
    EXPECT_EQ(record.failures, (Strings{"a retry", "a retry", "a fallback", "b fallback"}));
    ASSERT_EQ(c.questions.size(), 1U);
    EXPECT_EQ(c.questions.front().model, "up-c");
    EXPECT_EQ(c.questions.front().prompt, question().prompt);
    EXPECT_EQ(c.questions.front().jpeg, "picture");
}

TEST_F(AnswerChain, FollowsTheTableOfFaults)
{
    const std::vector<std::pair<ProviderFault, std::string>> expected = {
        {ProviderFault::Other, "fallback"},
        {ProviderFault::InvalidRequest, "fallback"},
        {ProviderFault::Authentication, "fallback"},
        {ProviderFault::Permission, "fallback"},
        {ProviderFault::Billing, "fallback"},
        {ProviderFault::UnknownModel, "fallback"},
        {ProviderFault::TooLarge, "fallback"},
        {ProviderFault::ContextTooLong, "fallback"},
        {ProviderFault::Filtered, "end"},
        {ProviderFault::RateLimited, "retry"},
        {ProviderFault::Overloaded, "retry"},
        {ProviderFault::ServerError, "retry"},
        {ProviderFault::TimedOut, "fallback"}};
    for (const auto &[fault, next] : expected) {
        record = Record();
        a.steps = {{"", refused(fault)}, {"again", complete()}};
        b.steps = {{"other", complete()}};
        outcomeOf({a.link(), b.link()});
        EXPECT_EQ(record.failures, Strings{"a " + next}) << static_cast<int>(fault);
        EXPECT_EQ(record.text, next == "retry" ? "again" : next == "fallback" ? "other" : "");
    }
    using Problem = UpstreamProblem::Kind;
    for (const auto kind :
         {Problem::Address, Problem::Unreachable, Problem::Certificate, Problem::Silent,
          Problem::Malformed, Problem::TooLong, Problem::Interrupted, Problem::Internal}) {
        const bool isRetried = kind == Problem::Unreachable || kind == Problem::Interrupted;
        record = Record();
        a.steps = {{"", problem(kind)}, {"again", complete()}};
        b.steps = {{"other", complete()}};
        outcomeOf({a.link(), b.link()});
        EXPECT_EQ(record.text, isRetried ? "again" : "other") << static_cast<int>(kind);
    }
}

TEST_F(AnswerChain, LongWaitIsForTheNextModelOrTheClient)
{
    a.steps = {{"", refused(ProviderFault::RateLimited, 429, 6)},
               {"", refused(ProviderFault::RateLimited, 429, 6)}};
    b.steps = {{"Hello", complete()}};
    EXPECT_EQ(outcomeOf({a.link(), b.link()}).kind, Kind::Complete);
    EXPECT_EQ(record.failures, Strings{"a fallback"});
    record = Record();
    const AnswerOutcome alone = outcomeOf({a.link()});
    EXPECT_EQ(alone.kind, Kind::RateLimited);
    EXPECT_EQ(alone.retryAfter, seconds(6));
}

TEST_F(AnswerChain, FirstModelsFailureIsPassedOnUnlessAnotherAsksToWait)
{
    a.steps = {{"", refused(ProviderFault::Authentication, 401)},
               {"", refused(ProviderFault::Authentication, 401)}};
    b.steps = {{"", refused(ProviderFault::Billing, 402)}};
    EXPECT_EQ(outcomeOf({a.link(), b.link()}).problem.status, 401);
    EXPECT_EQ(record.failures, (Strings{"a fallback", "b end"}));
    EXPECT_TRUE(record.models.empty());
    record = Record();
    limits.retries = 0;
    b.steps = {{"", refused(ProviderFault::RateLimited, 429)}};
    const AnswerOutcome limited = outcomeOf({a.link(), b.link()});
    EXPECT_EQ(limited.kind, Kind::RateLimited);
    // Said where the provider does not say how long.
    EXPECT_EQ(limited.retryAfter, seconds(30));
}

TEST_F(AnswerChain, ModelThatFailsOftenIsSpared)
{
    const AnswerOutcome cause = refused(ProviderFault::Overloaded, 529);
    a.breaker = opened(cause);
    b.steps = {{"Hello", complete()}};
    EXPECT_EQ(outcomeOf({a.link(), b.link()}).kind, Kind::Complete);
    EXPECT_EQ(a.asked, 0);
    // Its request is not even made ready.
    EXPECT_TRUE(a.questions.empty());
    EXPECT_EQ(record.failures, Strings{"a spared fallback"});
    record = Record();
    const AnswerOutcome alone = outcomeOf({a.link()});
    EXPECT_EQ(alone.kind, Kind::Failed);
    EXPECT_EQ(alone.problem.status, 529);
    EXPECT_EQ(a.asked, 0);
    EXPECT_EQ(record.failures, Strings{"a spared end"});
}

TEST_F(AnswerChain, SparedModelWithALimitSaysWhenToAskAgain)
{
    a.breaker = opened(refused(ProviderFault::RateLimited, 429));
    now += seconds(10);
    const AnswerOutcome outcome = outcomeOf({a.link()});
    EXPECT_EQ(outcome.kind, Kind::RateLimited);
    EXPECT_EQ(outcome.retryAfter, seconds(20));
}

TEST_F(AnswerChain, ReportsToTheBreaker)
{
    a.breaker = breakers.of("x", "m");
    limits.retries = 5;
    const Step busy = {"", refused(ProviderFault::Overloaded)};
    a.steps = {busy, busy, busy, busy, busy};
    b.steps = {{"Hello", complete()}};
    // The fifth failure opens it, so that there is no sixth attempt.
    EXPECT_EQ(outcomeOf({a.link(), b.link()}).kind, Kind::Complete);
    EXPECT_EQ(a.asked, 5);
    EXPECT_EQ(a.breaker->standing().state, CircuitBreaker::State::Open);
    now += seconds(30);
    record = Record();
    a.steps = {{"Well", complete()}};
    EXPECT_EQ(outcomeOf({a.link(), b.link()}).kind, Kind::Complete);
    EXPECT_EQ(record.models, Strings{"a"});
    EXPECT_EQ(a.breaker->standing().state, CircuitBreaker::State::Closed);
}

TEST_F(AnswerChain, QuestionsFaultsDoNotSpeakAgainstTheModel)
{
    a.breaker = breakers.of("x", "m");
    for (int i = 0; i < 6; ++i) {
        record = Record();
        a.steps = {{"", refused(ProviderFault::ContextTooLong, 400)}};
        outcomeOf({a.link()});
    }
    EXPECT_EQ(a.breaker->standing().state, CircuitBreaker::State::Closed);
}

TEST_F(AnswerChain, EndsAnAnswerThatTakesTooLong)
{
    limits.answer = milliseconds(20);
    a.steps = {{"", std::nullopt}};
    const AnswerOutcome silent = outcomeOf({a.link(), b.link()});
    EXPECT_EQ(silent.kind, Kind::Failed);
    EXPECT_EQ(silent.problem.kind, UpstreamProblem::Kind::Silent);
    EXPECT_EQ(b.asked, 0);
    record = Record();
    a.steps = {{"endless", std::nullopt}};
    EXPECT_EQ(outcomeOf({a.link()}).kind, Kind::Failed);
    EXPECT_EQ(record.text, "endless");
}

TEST_F(AnswerChain, EndsTooLateAlsoBetweenTwoAttempts)
{
    limits.answer = milliseconds(20);
    limits.firstWait = limits.longestWait = seconds(60);
    limits.random = [] { return 0.99; };
    a.steps = {{"", refused(ProviderFault::Overloaded)}};
    EXPECT_EQ(outcomeOf({a.link()}).problem.kind, UpstreamProblem::Kind::Silent);
    EXPECT_EQ(a.asked, 1);
}

TEST_F(AnswerChain, DroppedAnswerAsksNobodyAgain)
{
    limits.firstWait = limits.longestWait = seconds(60);
    limits.random = [] { return 0.99; };
    a.steps = {{"", refused(ProviderFault::Overloaded)}};
    begin({a.link(), b.link()});
    record.failed.get_future().wait();
    loop.postAndWait([] {});
    EXPECT_EQ(record.failures, Strings{"a retry"});
    drop();
    loop.postAndWait([] {});
    EXPECT_EQ(record.ends, 0);
    EXPECT_EQ(a.asked, 1);
}

TEST_F(AnswerChain, DroppedAnswerIgnoresAQuestionThatIsBeingMadeReady)
{
    std::promise<void> hold = heldWorker();
    a.steps = {{"", refused(ProviderFault::Billing)}};
    b.steps = {{"Hello", complete()}};
    begin({a.link(), b.link()});
    record.failed.get_future().wait();
    loop.postAndWait([] {});
    drop();
    hold.set_value();
    workers.stop();
    loop.postAndWait([] {});
    EXPECT_EQ(b.asked, 0);
    EXPECT_EQ(record.ends, 0);
}

TEST_F(AnswerChain, FullWorkersAreAFailureOfThisMachine)
{
    std::promise<void> hold = heldWorker();
    ASSERT_TRUE(workers.post([] {}));
    a.steps = {{"", refused(ProviderFault::Billing)}};
    b.breaker = breakers.of("x", "m");
    EXPECT_EQ(outcomeOf({a.link(), b.link()}).kind, Kind::Overloaded);
    EXPECT_EQ(b.asked, 0);
    hold.set_value();
}

TEST_F(AnswerChain, PausesTheModelThatAnswers)
{
    a.steps = {{"", refused(ProviderFault::Billing)}};
    b.steps = {{"Hello", std::nullopt}};
    begin({a.link(), b.link()});
    record.started.get_future().wait();
    loop.postAndWait([this] {
        answer->pause();
        answer->resume();
    });
    EXPECT_EQ(b.pauses, 1);
    EXPECT_EQ(b.resumes, 1);
    EXPECT_EQ(a.pauses, 0);
}

TEST_F(AnswerChain, EstimatesWhatAProviderDoesNotCount)
{
    a.steps = {{std::string(40, 'x'), complete(TokenCount{0, 0})}};
    const auto tokens = outcomeOf({a.link()}).tokens;
    EXPECT_EQ(tokens->input, 100);
    EXPECT_EQ(tokens->output, 10);
}

TEST_F(AnswerChain, AnswerWithoutTextIsTheModelsOwn)
{
    a.steps = {{"", complete(TokenCount{3, 0})}};
    EXPECT_EQ(outcomeOf({a.link()}).tokens->total(), 3);
    EXPECT_EQ(record.models, Strings{"a"});
}

TEST(BelievableTokens, ZeroIsEstimatedWhereThereIsText)
{
    const auto count = [](std::int64_t input, std::int64_t output, std::size_t bytes,
                          bool isComplete = true) {
        const auto tokens = believableTokens(TokenCount{input, output}, 400, bytes, isComplete);
        return std::pair(tokens->input, tokens->output);
    };
    EXPECT_EQ(count(7, 3, 400), std::pair(std::int64_t(7), std::int64_t(3)));
    EXPECT_EQ(count(7, 0, 400), std::pair(std::int64_t(7), std::int64_t(100)));
    EXPECT_EQ(count(0, 3, 400), std::pair(std::int64_t(100), std::int64_t(3)));
    EXPECT_EQ(count(0, 0, 0), std::pair(std::int64_t(0), std::int64_t(0)));
    // The count at the beginning of a stream is not the one of what followed.
    EXPECT_EQ(count(7, 1, 400, false), std::pair(std::int64_t(7), std::int64_t(100)));
    EXPECT_EQ(count(7, 200, 400, false), std::pair(std::int64_t(7), std::int64_t(200)));
    EXPECT_FALSE(believableTokens(std::nullopt, 400, 400, true));
}

TEST(RetryWait, IsAnyTimeUpToABoundThatDoubles)
{
    ChainLimits limits;
    limits.retries = 5;
    const auto at = [&](int retry, double share, int asked = 0) {
        limits.random = [share] { return share; };
        const auto wait = retryWait(retry, seconds(asked), limits);
        return wait ? wait->count() : -1;
    };
    EXPECT_EQ(at(0, 0), 0);
    EXPECT_EQ(at(0, 0.5), 250);
    EXPECT_EQ(at(0, 0.998), 499);
    EXPECT_EQ(at(1, 0.5), 500);
    EXPECT_EQ(at(2, 0.5), 1000);
    EXPECT_EQ(at(4, 0.5), 2500);
    EXPECT_EQ(at(5, 0.5), -1);
    EXPECT_EQ(at(0, 0.5, 5), 5250);
    EXPECT_EQ(at(0, 0.5, 6), -1);
}

TEST(RetryWait, SpreadsOverTheWholeRange)
{
    int low = 0;
    int high = 0;
    for (int i = 0; i < 400; ++i) {
        const auto wait = retryWait(0, seconds(0), ChainLimits{}).value();
        ASSERT_GE(wait, milliseconds(0));
        ASSERT_LT(wait, milliseconds(500));
        low += wait < milliseconds(125) ? 1 : 0;
        high += wait >= milliseconds(375) ? 1 : 0;
    }
    EXPECT_GT(low, 40);
    EXPECT_GT(high, 40);
}

} // namespace
} // namespace quellora::server
