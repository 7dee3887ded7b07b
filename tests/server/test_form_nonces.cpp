#include "ServerKit.h"

#include "http/FormNonces.h"

namespace quellora::server {
namespace {

TEST(FormNonces, AreValidOnceAndExpire)
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

TEST(FormNonces, KeepTheNewestBeyondTheMaximum)
{
    ManualClock clock;
    initializeCrypto();
    FormNonces nonces(clock);
    const std::string first = nonces.issue();
    clock.advance(std::chrono::seconds(1));
    std::string last;
    for (int i = 0; i < 300; ++i)
        last = nonces.issue();
    EXPECT_FALSE(nonces.consume(first));
    EXPECT_TRUE(nonces.consume(last));
}

} // namespace
} // namespace quellora::server
