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

TEST(RateLimiter, ForgetsAKeyOnReset)
{
    ManualClock clock;
    MemoryRateLimiter limiter(clock, 1, seconds(60));
    EXPECT_FALSE(limiter.acquire("a"));
    EXPECT_EQ(limiter.acquire("a"), seconds(60));
    limiter.reset("a");
    EXPECT_FALSE(limiter.acquire("a"));
}

TEST(RunningStreams, LimitsTheirNumberAndFindsThoseOfAnAccount)
{
    RunningStreams streams(2);
    auto first = streams.acquire();
    const auto second = streams.acquire();
    ASSERT_TRUE(first && second);
    EXPECT_FALSE(streams.acquire());
    std::vector<Revocation> revoked;
    const auto note = [&revoked](Revocation why) { revoked.push_back(why); };
    streams.add(first, {1, "a", note});
    streams.add(second, {2, "b", note});
    const auto found = streams.ofAccount(1);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].sessionId, "a");
    found[0].revoke(Revocation::SignedOut);
    EXPECT_EQ(revoked, std::vector<Revocation>{Revocation::SignedOut});
    EXPECT_FALSE(streams.waitForNone(std::chrono::milliseconds(0)));
    first.reset();
    EXPECT_TRUE(streams.ofAccount(1).empty());
    EXPECT_TRUE(streams.acquire());
}

} // namespace
} // namespace quellora::server
