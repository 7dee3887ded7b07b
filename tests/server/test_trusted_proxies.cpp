#include "config/TrustedProxies.h"

#include <gtest/gtest.h>

namespace quellora::server {
namespace {

TrustedProxies trusting(const std::vector<std::string> &networks)
{
    TrustedProxies proxies;
    for (const std::string &network : networks)
        EXPECT_TRUE(proxies.add(network)) << network;
    return proxies;
}

TEST(TrustedProxies, NobodyIsTrustedByItself)
{
    EXPECT_EQ(TrustedProxies().clientOf("127.0.0.1", {"1.2.3.4"}), "127.0.0.1");
}

TEST(TrustedProxies, TheLastThatIsNoProxyCounts)
{
    const auto proxies = trusting({"127.0.0.1", "10.0.0.0/8"});
    EXPECT_EQ(proxies.clientOf("127.0.0.1", {}), "127.0.0.1");
    EXPECT_EQ(proxies.clientOf("127.0.0.1", {"1.2.3.4"}), "1.2.3.4");
    // What the client itself wrote comes first.
    EXPECT_EQ(proxies.clientOf("127.0.0.1", {"9.9.9.9, 1.2.3.4"}), "1.2.3.4");
    EXPECT_EQ(proxies.clientOf("127.0.0.1", {"9.9.9.9", "1.2.3.4"}), "1.2.3.4");
    EXPECT_EQ(proxies.clientOf("127.0.0.1", {"9.9.9.9", "1.2.3.4, 10.1.2.3"}), "1.2.3.4");
    EXPECT_EQ(proxies.clientOf("127.0.0.1", {"1.2.3.4", "10.1.2.3"}), "1.2.3.4");
    EXPECT_EQ(proxies.clientOf("1.2.3.4", {"9.9.9.9"}), "1.2.3.4");
    EXPECT_EQ(proxies.clientOf("11.0.0.1", {"9.9.9.9"}), "11.0.0.1");
    EXPECT_EQ(proxies.clientOf("127.0.0.1", {"10.0.0.1"}), "10.0.0.1");
}

TEST(TrustedProxies, WhatIsNoAddressIsNotTaken)
{
    const auto proxies = trusting({"127.0.0.1"});
    for (const std::string text : {"unknown", "1.2.3.4, x", ",", "", " ", "1.2.3.4:80", "a, "})
        EXPECT_EQ(proxies.clientOf("127.0.0.1", {text}), "127.0.0.1") << text;
}

TEST(TrustedProxies, NetworksEndWithinBytes)
{
    const auto proxies = trusting({"192.168.4.0/22", "fd00::/7", "0.0.0.0/32"});
    EXPECT_EQ(proxies.clientOf("192.168.7.255", {"1.2.3.4"}), "1.2.3.4");
    EXPECT_EQ(proxies.clientOf("192.168.8.0", {"1.2.3.4"}), "192.168.8.0");
    EXPECT_EQ(proxies.clientOf("192.168.3.255", {"1.2.3.4"}), "192.168.3.255");
    EXPECT_EQ(proxies.clientOf("fc12::1", {"2001:db8::1"}), "2001:db8::1");
    EXPECT_EQ(proxies.clientOf("fe00::1", {"2001:db8::1"}), "fe00::1");
    EXPECT_EQ(proxies.clientOf("::ffff:192.168.4.1", {"1.2.3.4"}), "1.2.3.4");
    EXPECT_EQ(trusting({"0.0.0.0/0"}).clientOf("8.8.8.8", {"1.2.3.4"}), "1.2.3.4");
    EXPECT_EQ(trusting({"0.0.0.0/0"}).clientOf("::1", {"1.2.3.4"}), "::1");
}

TEST(TrustedProxies, OtherTextsAreRefused)
{
    TrustedProxies proxies;
    for (const std::string text : {"", "proxy.example", "10.0.0.0/", "10.0.0.0/33", "::/129",
                                   "10.0.0.0/8x", "10.0.0.0/-1", "/8", "10.0.0"})
        EXPECT_FALSE(proxies.add(text)) << text;
}

} // namespace
} // namespace quellora::server
