#include "model/CircuitBreaker.h"

#include <gtest/gtest.h>

namespace quellora::server {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using State = CircuitBreaker::State;

class Breaker : public testing::Test
{
protected:
    CircuitBreaker::Time now{};
    CircuitBreakers breakers{BreakerLimits{}, [this] { return now; }};
    std::shared_ptr<CircuitBreaker> breaker = breakers.of("https://x", "m");
    const UpstreamProblem problem = {UpstreamProblem::Kind::Refused, 500,
                                     ProviderFault::ServerError, "secret words"};

    void fail(int times, seconds wait = seconds(0))
    {
        for (int i = 0; i < times; ++i)
            breaker->admit().value().failed(problem, wait);
    }
    void succeed(int times)
    {
        for (int i = 0; i < times; ++i)
            breaker->admit().value().succeeded();
    }
    State state() const { return breaker->standing().state; }
};

TEST_F(Breaker, OpensAfterFiveFailuresAndKeepsWhatTheyWere)
{
    fail(4);
    EXPECT_EQ(state(), State::Closed);
    fail(1);
    EXPECT_EQ(state(), State::Open);
    EXPECT_FALSE(breaker->admit());
    const auto standing = breaker->standing();
    EXPECT_EQ(standing.wait, seconds(30));
    EXPECT_EQ(standing.openings, 1U);
    EXPECT_EQ(standing.problem.fault, ProviderFault::ServerError);
    EXPECT_EQ(standing.problem.words, "");
}

TEST_F(Breaker, StaysClosedWhileMostAttemptsSucceed)
{
    succeed(6);
    fail(5);
    EXPECT_EQ(state(), State::Closed);
    fail(1);
    EXPECT_EQ(state(), State::Open);
}

TEST_F(Breaker, ForgetsFailuresAfterAMinute)
{
    fail(4);
    now += seconds(61);
    fail(4);
    EXPECT_EQ(state(), State::Closed);
    fail(1);
    EXPECT_EQ(state(), State::Open);
}

TEST_F(Breaker, OneTrialPassesAfterThePause)
{
    fail(5);
    now += milliseconds(29999);
    EXPECT_FALSE(breaker->admit());
    EXPECT_EQ(breaker->standing().wait, milliseconds(1));
    now += milliseconds(1);
    EXPECT_EQ(state(), State::HalfOpen);
    auto trial = breaker->admit();
    ASSERT_TRUE(trial);
    EXPECT_FALSE(breaker->admit());
    trial->succeeded();
    EXPECT_EQ(state(), State::Closed);
    // What failed before the pause does not count any more.
    fail(4);
    EXPECT_EQ(state(), State::Closed);
}

TEST_F(Breaker, PauseDoublesWithEachFailedTrialUpToItsLimit)
{
    fail(5);
    for (const int wait : {30, 60, 120, 240, 300, 300}) {
        EXPECT_EQ(breaker->standing().wait, seconds(wait));
        now += seconds(wait);
        fail(1);
    }
    EXPECT_EQ(breaker->standing().openings, 7U);
    now += seconds(300);
    succeed(1);
    fail(5);
    EXPECT_EQ(breaker->standing().wait, seconds(30));
}

TEST_F(Breaker, ProviderMayAskForALongerPauseWithinTheLimit)
{
    fail(5, seconds(90));
    EXPECT_EQ(breaker->standing().wait, seconds(90));
    now += seconds(90);
    fail(1, seconds(3600));
    EXPECT_EQ(breaker->standing().wait, seconds(300));
}

TEST_F(Breaker, AbandonedTrialLeavesTheNextOneItsTurn)
{
    fail(5);
    now += seconds(30);
    {
        auto trial = breaker->admit();
        ASSERT_TRUE(trial);
        // Moving it does not end it.
        const CircuitBreaker::Attempt moved(std::move(*trial));
        trial.reset();
        EXPECT_FALSE(breaker->admit());
    }
    EXPECT_EQ(state(), State::HalfOpen);
    EXPECT_TRUE(breaker->admit());
}

TEST_F(Breaker, AttemptsFromBeforeTheOpeningChangeNothing)
{
    auto good = breaker->admit();
    auto bad = breaker->admit();
    fail(5);
    good->succeeded();
    bad->failed(problem, seconds(0));
    EXPECT_EQ(state(), State::Open);
    EXPECT_EQ(breaker->standing().wait, seconds(30));
    EXPECT_EQ(breaker->standing().openings, 1U);
}

TEST_F(Breaker, AnswersThatBreakOffCountAsFailuresToo)
{
    for (int i = 0; i < 5; ++i) {
        auto attempt = breaker->admit();
        attempt->succeeded();
        attempt->failed(problem, seconds(0));
    }
    EXPECT_EQ(state(), State::Open);
}

TEST_F(Breaker, IsSharedByEndpointAndModel)
{
    EXPECT_EQ(breakers.of("https://x", "m"), breaker);
    EXPECT_NE(breakers.of("https://x", "n"), breaker);
    EXPECT_NE(breakers.of("https://y", "m"), breaker);
}

} // namespace
} // namespace quellora::server
