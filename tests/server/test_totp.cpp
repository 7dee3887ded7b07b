#include "admin/QrCode.h"
#include "admin/Totp.h"

#include <gtest/gtest.h>

#include <set>

namespace quellora::server {
namespace {

const std::string key = "12345678901234567890";

TimePoint at(std::int64_t seconds)
{
    return TimePoint(std::chrono::seconds(seconds));
}

TEST(Totp, CodesAreThoseOfTheStandard)
{
    // RFC 6238, appendix B, the last six of eight digits.
    for (const auto &[seconds, code] :
         {std::pair(59LL, "287082"), std::pair(1111111109LL, "081804"),
          std::pair(1111111111LL, "050471"), std::pair(1234567890LL, "005924"),
          std::pair(2000000000LL, "279037"), std::pair(20000000000LL, "353130")})
        EXPECT_EQ(totp::code(key, seconds / 30), code);
}

TEST(Totp, OneStepOfDriftIsAcceptedAndNoMore)
{
    const std::int64_t step = totp::stepOf(at(1234567890));
    for (int drift = -3; drift <= 3; ++drift) {
        const auto accepted =
            totp::acceptedStep(key, totp::code(key, step + drift), at(1234567890), 0);
        EXPECT_EQ(accepted.has_value(), drift >= -1 && drift <= 1) << drift;
        EXPECT_EQ(accepted.value_or(step + drift), step + drift);
    }
}

TEST(Totp, ACodeIsNotAcceptedTwiceNorAnEarlierOneAfterIt)
{
    const std::int64_t step = totp::stepOf(at(1234567890));
    EXPECT_FALSE(totp::acceptedStep(key, totp::code(key, step), at(1234567890), step));
    EXPECT_FALSE(totp::acceptedStep(key, totp::code(key, step - 1), at(1234567890), step));
    EXPECT_TRUE(totp::acceptedStep(key, totp::code(key, step + 1), at(1234567890), step));
}

TEST(Totp, WhatIsNoCodeIsRefused)
{
    for (const char *entered : {"", "28708", "2870822", "      ", "abcdef", "287 082"})
        EXPECT_FALSE(totp::acceptedStep(key, entered, at(59), -9)) << entered;
}

TEST(Totp, SecretsAreRandomAndReadableByApps)
{
    std::set<std::string> secrets;
    for (int i = 0; i < 20; ++i) {
        const std::string secret = totp::newSecret();
        EXPECT_EQ(secret.size(), 20U);
        EXPECT_EQ(totp::base32(secret).size(), 32U);
        EXPECT_EQ(totp::base32Decoded(totp::base32(secret)), secret);
        secrets.insert(secret);
    }
    EXPECT_EQ(secrets.size(), 20U);
}

TEST(Totp, Base32IsThatOfTheStandard)
{
    // RFC 4648, section 10.
    for (const auto &[bytes, text] :
         {std::pair("", ""), std::pair("f", "MY"), std::pair("fo", "MZXQ"),
          std::pair("foo", "MZXW6"), std::pair("foob", "MZXW6YQ"), std::pair("fooba", "MZXW6YTB"),
          std::pair("foobar", "MZXW6YTBOI")}) {
        EXPECT_EQ(totp::base32(bytes), text);
        EXPECT_EQ(totp::base32Decoded(text), bytes);
    }
    EXPECT_EQ(totp::base32Decoded("mzxw 6ytb oi======"), "foobar");
    EXPECT_FALSE(totp::base32Decoded("MZXW1"));
}

TEST(Totp, TheAddressNamesIssuerAccountAndParameters)
{
    EXPECT_EQ(totp::uri("Quellora", "ann+x@example.org", key),
              "otpauth://totp/Quellora:ann%2Bx%40example.org?secret="
              "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ&issuer=Quellora&algorithm=SHA1&digits=6&period=30");
}

TEST(QrCode, TheImageIsDarkOnWhiteAndNamed)
{
    const std::string svg = qrSvg("otpauth://totp/x", "Code for \"the app\"");
    EXPECT_NE(svg.find("role=\"img\" aria-label=\"Code for &quot;the app&quot;\""),
              std::string::npos);
    EXPECT_NE(svg.find("fill=\"#fff\""), std::string::npos);
    // The finder in the corner, after the border.
    EXPECT_NE(svg.find("d=\"M4 4h7v1h-7z"), std::string::npos);
}

TEST(QrCode, TheTextHasTheBorderThatReadersNeed)
{
    const std::string text = qrText("otpauth://totp/x");
    const std::string first = text.substr(0, text.find('\n'));
    EXPECT_EQ(first.find("█"), std::string::npos);
    EXPECT_EQ(first.find("▀"), std::string::npos);
    EXPECT_NE(text.find("█"), std::string::npos);
}

} // namespace
} // namespace quellora::server
