#include "base/JsonAccess.h"
#include "base/Secrets.h"
#include "base/Text.h"

#include <gtest/gtest.h>

#include <set>

namespace quellora::server {
namespace {

TEST(Text, FormFieldsAreDecodedAndTheFirstOfEqualNamesWins)
{
    const auto fields = formFields("a=1+2&b=%41%zz&a=3&c&=x&d=e%3Df");
    EXPECT_EQ(fields.at("a"), "1 2");
    EXPECT_EQ(fields.at("b"), "A%zz");
    EXPECT_EQ(fields.at("c"), "");
    EXPECT_EQ(fields.at("d"), "e=f");
}

TEST(Text, FormFieldsAreValidUtf8)
{
    const auto fields = formFields("a=%C3%A9&b=x%FFy%C3&%80=%F0%9F%98%80&c=%ED%A0%80&d=%C0%AF");
    EXPECT_EQ(fields.at("a"), "\xC3\xA9");
    EXPECT_EQ(fields.at("b"), "x\xEF\xBF\xBDy\xEF\xBF\xBD");
    EXPECT_EQ(fields.at("\xEF\xBF\xBD"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(fields.at("c"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(fields.at("d"), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(JsonAccess, NothingMayFollowTheObject)
{
    EXPECT_TRUE(parsedObject("{\"a\":1} \n"));
    EXPECT_FALSE(parsedObject("{\"a\":1} x"));
    EXPECT_FALSE(parsedObject(std::string_view("{\"a\":1}\0 x", 10)));
    EXPECT_FALSE(parsedObject(std::string_view("{\"a\":1}\0", 8)));
}

TEST(JsonAccess, CountsAreWholeAndBounded)
{
    const auto count = [](const std::string &number) {
        return countOf(parsedObject("{\"n\":" + number + "}").value(), "n");
    };
    EXPECT_EQ(count("0"), 0);
    EXPECT_EQ(count("7"), 7);
    EXPECT_EQ(count("1000000000"), 1'000'000'000);
    EXPECT_EQ(count("9223372036854775807"), 1'000'000'000);
    EXPECT_EQ(count("18446744073709551615"), 1'000'000'000);
    EXPECT_FALSE(count("-1"));
    EXPECT_FALSE(count("1.5"));
    EXPECT_FALSE(count("1e30"));
    EXPECT_FALSE(count("\"7\""));
    EXPECT_FALSE(countOf(parsedObject("{}").value(), "n"));
}

TEST(Text, HtmlIsEscaped)
{
    EXPECT_EQ(htmlEscaped("<a href=\"x\">&'"), "&lt;a href=&quot;x&quot;&gt;&amp;&#39;");
}

TEST(Text, Base64AcceptsOnlyThePaddedStandardForm)
{
    const std::string bytes("\x00\xFF\x10z", 4);
    EXPECT_EQ(base64Decoded(base64Encoded(bytes)), bytes);
    EXPECT_EQ(base64Decoded(""), "");
    EXPECT_FALSE(base64Decoded("L\xEF\xBF\xBD"));
    EXPECT_FALSE(base64Decoded("AP8Q"
                               "eg"));
    EXPECT_FALSE(base64Decoded("AP8Q\neg=="));
    EXPECT_FALSE(base64Decoded("not base64!"));
}

TEST(Text, CountsAreWholeAndNotNegative)
{
    EXPECT_EQ(parseCount("120"), 120);
    EXPECT_FALSE(parseCount("-1"));
    EXPECT_FALSE(parseCount("1.5"));
    EXPECT_FALSE(parseCount(""));
    EXPECT_FALSE(parseCount("99999999999999999999"));
}

TEST(Text, VersionsCompareNumerically)
{
    EXPECT_EQ(compareVersions("1.0.0", "1.0"), 0);
    EXPECT_LT(compareVersions("1.9.0", "1.10"), 0);
    EXPECT_GT(compareVersions("2", "1.99.99"), 0);
}

TEST(Text, EmailsAreNormalised)
{
    EXPECT_EQ(normalizedEmail(" Ann@Example.ORG "), "ann@example.org");
    EXPECT_EQ(normalizedEmail("me@localhost"), "me@localhost");
    EXPECT_FALSE(normalizedEmail("ann"));
    EXPECT_FALSE(normalizedEmail("@b"));
    EXPECT_FALSE(normalizedEmail("a@b@c"));
    EXPECT_FALSE(normalizedEmail("a b@c"));
    EXPECT_FALSE(normalizedEmail(std::string(250, 'a') + "@b.cd"));
}

TEST(Text, TimesAreUtc)
{
    const TimePoint newYear{std::chrono::seconds(1767225600)};
    EXPECT_EQ(isoTime(newYear), "2026-01-01T00:00:00Z");
    EXPECT_EQ(billingPeriod(newYear), "2026-01");
    EXPECT_EQ(billingPeriod(newYear - std::chrono::seconds(1)), "2025-12");
}

TEST(Text, TokensAreEstimatedFromFourBytesEach)
{
    EXPECT_EQ(estimatedTokens(0), 0);
    EXPECT_EQ(estimatedTokens(1), 1);
    EXPECT_EQ(estimatedTokens(8), 2);
}

TEST(Secrets, TokensAreLongAndUnique)
{
    initializeCrypto();
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        const std::string token = randomToken();
        EXPECT_EQ(token.size(), 43U);
        EXPECT_EQ(token.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                          "0123456789-_"),
                  std::string::npos);
        seen.insert(token);
        seen.insert(randomPassword());
        seen.insert(randomUuid());
    }
    EXPECT_EQ(seen.size(), 300U);
}

TEST(Secrets, PasswordsAreArgon2idAndVerify)
{
    const PasswordHasher hasher(PasswordCost{1, 8192});
    const std::string hash = hasher.hash("secret");
    EXPECT_EQ(hash.rfind("$argon2id$", 0), 0U);
    EXPECT_NE(hash, hasher.hash("secret"));
    EXPECT_TRUE(hasher.verify(hash, "secret"));
    EXPECT_FALSE(hasher.verify(hash, "Secret"));
    EXPECT_FALSE(hasher.verify("", "secret"));
}

} // namespace
} // namespace quellora::server
