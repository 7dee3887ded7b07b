#include "base/Stop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace quellora::server;
using namespace std::chrono_literals;

TEST(Stop, TokensShareTheStateOfTheirSource)
{
    StopSource source;
    const StopToken first = source.token();
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): a copy is what is tested
    const StopToken second = first;
    EXPECT_FALSE(first.stopRequested());
    source.requestStop();
    EXPECT_TRUE(first.stopRequested());
    EXPECT_TRUE(second.stopRequested());
    EXPECT_FALSE(StopToken().stopRequested());
    EXPECT_FALSE(StopSource().stopRequested());
}

TEST(Stop, WaitEndsWhenStopIsRequested)
{
    StopSource source;
    std::thread waiting([token = source.token()] { token.waitForStop([] { return false; }); });
    source.requestStop();
    waiting.join();
    // Returns at once when the stop was requested before.
    source.token().waitForStop([] { return false; });
}

TEST(Stop, WaitEndsWhenWokenWithItsConditionMet)
{
    const StopSource source;
    std::atomic<bool> isDone = false;
    std::thread waiting(
        [token = source.token(), &isDone] { token.waitForStop([&] { return isDone.load(); }); });
    isDone = true;
    source.wake();
    waiting.join();
    EXPECT_FALSE(source.stopRequested());
}

TEST(Stop, TimedWaitIgnoresTheStop)
{
    StopSource source;
    source.requestStop();
    const auto start = std::chrono::steady_clock::now();
    source.waitFor(20ms, [] { return false; });
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
    source.waitFor(1h, [] { return true; });
}
