#include "ServerKit.h"

#include "http/FormNonces.h"

namespace quellora::server {
namespace {

using std::chrono::seconds;

TEST(RateLimiter, AllowsTheLimitAndTellsHowLongToWait)
{
    ManualClock clock;
    RateLimiter limiter(clock, 2, seconds(60));
    EXPECT_FALSE(limiter.acquire("a"));
    clock.advance(seconds(10));
    EXPECT_FALSE(limiter.acquire("a"));
    EXPECT_EQ(limiter.acquire("a"), seconds(50));
    EXPECT_FALSE(limiter.acquire("b"));
    clock.advance(seconds(50));
    EXPECT_FALSE(limiter.acquire("a"));
    EXPECT_EQ(limiter.acquire("a"), seconds(10));
}

TEST(RateLimiter, RecordsBeyondTheLimitAndForgetsOnReset)
{
    ManualClock clock;
    RateLimiter limiter(clock, 1, seconds(60));
    limiter.record("a");
    clock.advance(seconds(30));
    limiter.record("a");
    EXPECT_EQ(limiter.wait("a"), seconds(60));
    limiter.reset("a");
    EXPECT_FALSE(limiter.wait("a"));
}

TEST(StreamSlots, CountsPerAccountAndAltogether)
{
    StreamSlots slots(1, 2);
    auto first = slots.acquire(1);
    EXPECT_TRUE(first);
    EXPECT_FALSE(slots.acquire(1));
    const auto second = slots.acquire(2);
    EXPECT_TRUE(second);
    EXPECT_FALSE(slots.acquire(3));
    EXPECT_FALSE(slots.waitForNone(std::chrono::milliseconds(0)));
    first.reset();
    EXPECT_TRUE(slots.acquire(3));
    EXPECT_EQ(slots.running(), 1);
}

TEST(FormNonces, WorkOnceAndExpire)
{
    ManualClock clock;
    initializeCrypto();
    FormNonces nonces(clock);
    const std::string nonce = nonces.issue();
    EXPECT_TRUE(nonces.consume(nonce));
    EXPECT_FALSE(nonces.consume(nonce));
    const std::string old = nonces.issue();
    clock.advance(std::chrono::minutes(10));
    EXPECT_FALSE(nonces.consume(old));
    EXPECT_FALSE(nonces.consume(""));
}

TEST(FormNonces, KeepTheNewestWhenFlooded)
{
    ManualClock clock;
    initializeCrypto();
    FormNonces nonces(clock);
    const std::string first = nonces.issue();
    clock.advance(seconds(1));
    std::string last;
    for (int i = 0; i < 300; ++i)
        last = nonces.issue();
    EXPECT_FALSE(nonces.consume(first));
    EXPECT_TRUE(nonces.consume(last));
}

} // namespace
} // namespace quellora::server
