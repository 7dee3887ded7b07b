#include "ServerKit.h"

namespace quellora::server {
namespace {

using std::chrono::seconds;

TEST(RateLimiter, ReturnsTheWaitTimeWhenTheLimitIsReached)
{
    ManualClock clock;
    MemoryRateLimiter limiter(clock, 2, seconds(60));
    EXPECT_FALSE(limiter.acquire("a"));
    clock.advance(seconds(10));
    EXPECT_FALSE(limiter.acquire("a"));
    EXPECT_EQ(limiter.acquire("a"), seconds(50));
    EXPECT_FALSE(limiter.acquire("b"));
    clock.advance(seconds(50));
    EXPECT_FALSE(limiter.acquire("a"));
    EXPECT_EQ(limiter.acquire("a"), seconds(10));
}

TEST(RateLimiter, RecordsBeyondTheLimitUntilReset)
{
    ManualClock clock;
    MemoryRateLimiter limiter(clock, 1, seconds(60));
    limiter.record("a");
    clock.advance(seconds(30));
    limiter.record("a");
    EXPECT_EQ(limiter.wait("a"), seconds(60));
    limiter.reset("a");
    EXPECT_FALSE(limiter.wait("a"));
}

TEST(StreamSlots, LimitsPerAccountAndInTotal)
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
}

} // namespace
} // namespace quellora::server
