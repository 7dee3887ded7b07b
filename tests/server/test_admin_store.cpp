#include "ServerKit.h"

#include "admin/AdminStore.h"
#include "admin/Totp.h"
#include "admin/UsageChart.h"
#include "oidc/OidcSignIns.h"

#include <regex>

namespace quellora::server {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

class AdminStoreTest : public testing::Test
{
protected:
    std::string secretOf(const std::string &uri)
    {
        const std::size_t begin = uri.find("secret=") + 7;
        return totp::base32Decoded(uri.substr(begin, uri.find('&') - begin)).value();
    }
    std::string codeNow(const std::string &uri, std::int64_t drift = 0)
    {
        return totp::code(secretOf(uri), totp::stepOf(clock.now()) + drift);
    }

    TemporaryDirectory directory;
    ManualClock clock;
    Config config = testConfig(directory);
    PasswordHasher hasher{weakCost()};
    std::unique_ptr<Database> database = openDatabase(config);
    AdminStore store{config, *database, hasher, clock, {}};
};

TEST_F(AdminStoreTest, ASessionEndsAfterHalfAnHourOfSilence)
{
    store.administrators.enrol("boss@example.org", "password");
    const std::int64_t id = store.administrators.all().front().id;
    const std::string token = store.adminSessions.begin(id);
    clock.advance(minutes(29));
    EXPECT_EQ(store.adminSessions.find(token), id);
    clock.advance(minutes(29));
    EXPECT_EQ(store.adminSessions.find(token), id);
    clock.advance(minutes(30));
    EXPECT_FALSE(store.adminSessions.find(token));
}

TEST_F(AdminStoreTest, ASessionEndsAfterTwelveHoursInAnyCase)
{
    store.administrators.enrol("boss@example.org", "password");
    const std::string token = store.adminSessions.begin(store.administrators.all().front().id);
    for (int i = 0; i < 12 * 3 - 1; ++i) {
        clock.advance(minutes(20));
        ASSERT_TRUE(store.adminSessions.find(token)) << i;
    }
    clock.advance(minutes(20));
    EXPECT_FALSE(store.adminSessions.find(token));
}

TEST_F(AdminStoreTest, SessionsAreStoredAsFingerprintsAndEndWithTheAdministrator)
{
    store.administrators.enrol("boss@example.org", "password");
    const std::string token = store.adminSessions.begin(store.administrators.all().front().id);
    database->query("SELECT fingerprint FROM admin_sessions", {}, [&](const Database::Row &row) {
        EXPECT_EQ(row.text(0).find(token), std::string::npos);
        EXPECT_NE(row.text(0), AdminSessions::formToken(token));
    });
    EXPECT_FALSE(store.adminSessions.find(""));
    EXPECT_FALSE(store.adminSessions.find(AdminSessions::formToken(token)));
    EXPECT_TRUE(store.administrators.remove("boss@example.org"));
    EXPECT_FALSE(store.adminSessions.find(token));
}

TEST_F(AdminStoreTest, ACodeCountsOnceAlsoForTwoInstances)
{
    const std::string uri = store.administrators.enrol("boss@example.org", "password").uri;
    Administrators other(*database, hasher, clock);
    const std::string code = codeNow(uri);
    EXPECT_TRUE(store.administrators.authenticate("boss@example.org", "password", code));
    EXPECT_FALSE(other.authenticate("boss@example.org", "password", code));
    clock.advance(seconds(30));
    EXPECT_FALSE(other.authenticate("boss@example.org", "password", code));
    EXPECT_TRUE(other.authenticate("boss@example.org", "password", codeNow(uri)));
    EXPECT_FALSE(other.authenticate("boss@example.org", "password", codeNow(uri, 2)));
    const std::string next = codeNow(uri, 1);
    EXPECT_TRUE(other.authenticate("boss@example.org", "password",
                                   next.substr(0, 3) + " " + next.substr(3)));
}

TEST_F(AdminStoreTest, WhatIsNoTextIsNobody)
{
    EXPECT_FALSE(store.administrators.findByEmail("\xFF"));
    EXPECT_FALSE(store.administrators.authenticate("\xFF", "password", "000000"));
}

TEST_F(AdminStoreTest, AnInvitationIsValidForAWeekAndOnce)
{
    const auto account = store.accounts.createInvited("bob@example.org", "local", 0);
    const std::string token = store.invitations.issue(account->id);
    clock.advance(hours(24 * 7) - seconds(1));
    EXPECT_EQ(store.invitations.find(token), account->id);
    clock.advance(seconds(1));
    EXPECT_FALSE(store.invitations.find(token));
    EXPECT_FALSE(store.invitations.redeem(token));
    const std::string next = store.invitations.issue(account->id);
    EXPECT_EQ(store.invitations.redeem(next), account->id);
    EXPECT_FALSE(store.invitations.redeem(next));
}

TEST_F(AdminStoreTest, ATeamSignInBelongsToItsBrowserAndEndsOnce)
{
    OidcSignIns signIns(*database, clock);
    const OidcAttempt attempt = signIns.begin("browser", "https://q.example/login/team/done");
    EXPECT_FALSE(signIns.end(attempt.state, "another browser"));
    EXPECT_FALSE(signIns.end("another state", "browser"));
    const auto ended = signIns.end(attempt.state, "browser");
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->nonce, attempt.nonce);
    EXPECT_EQ(ended->verifier, attempt.verifier);
    EXPECT_EQ(ended->redirect, attempt.redirect);
    EXPECT_FALSE(signIns.end(attempt.state, "browser"));
    const OidcAttempt late = signIns.begin("browser", "x");
    clock.advance(minutes(10));
    EXPECT_FALSE(signIns.end(late.state, "browser"));
}

TEST(UsageChart, DaysAreThoseOfTheCalendar)
{
    EXPECT_EQ(daysBetween("2026-02-27", "2026-03-02"),
              (std::vector<std::string>{"2026-02-27", "2026-02-28", "2026-03-01", "2026-03-02"}));
    EXPECT_EQ(daysBetween("2028-02-28", "2028-03-01").size(), 3U);
    EXPECT_TRUE(daysBetween("2026-13-01", "2026-01-01").empty());
    EXPECT_TRUE(daysBetween("x", "y").empty());
    EXPECT_TRUE(daysBetween("2026-01-01x", "2026-01-02").empty());
    EXPECT_TRUE(daysBetween("2026-1-1", "2026-01-02").empty());
    EXPECT_TRUE(daysBetween("2026-01--1", "2026-01-02").empty());
    EXPECT_EQ(daysBetween("2000-01-01", "2026-01-01").size(), 400U);
    EXPECT_EQ(dayBefore("2026-03-01", 1), "2026-02-28");
    EXPECT_EQ(dayBefore("2026-01-01", 364), "2025-01-02");
}

TEST(UsageChart, NumbersAreGrouped)
{
    EXPECT_EQ(grouped(0), "0");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(1000), "1,000");
    EXPECT_EQ(grouped(1234567), "1,234,567");
    EXPECT_EQ(grouped(-1234), "-1,234");
}

TEST(UsageChart, TheChartSaysItsFiguresInWords)
{
    const std::string html = barChart(
        "Tokens <per> day", {{"2026-01-01", 50}, {"2026-01-02", 0}, {"2026-01-03", 100}}, "tokens");
    EXPECT_NE(html.find("aria-label=\"Tokens &lt;per&gt; day: 150 tokens, most on 2026-01-03 with "
                        "100\""),
              std::string::npos);
    EXPECT_NE(html.find("<title>2026-01-01: 50 tokens</title>"), std::string::npos);
    EXPECT_NE(html.find("y=\"50.00\" width=\"8\" height=\"50.00\""), std::string::npos);
    EXPECT_NE(html.find("height=\"0.00\""), std::string::npos);
    EXPECT_NE(barChart("T", {{"2026-01-01", 0}}, "tokens").find("aria-label=\"T: none\""),
              std::string::npos);
    // Something is seen also beside a much higher day.
    EXPECT_NE(barChart("T", {{"a", 1}, {"b", 100000}}, "x").find("height=\"1.50\""),
              std::string::npos);
}

TEST(UsageChart, TheAllowanceBarSaysItsShare)
{
    EXPECT_EQ(allowanceBar(5, 0), "");
    EXPECT_NE(allowanceBar(50, 100).find("50 % used"), std::string::npos);
    EXPECT_NE(allowanceBar(95, 100).find("class=\"high\""), std::string::npos);
    EXPECT_NE(allowanceBar(500, 100).find("class=\"spent\" width=\"100.00\""), std::string::npos);
}

} // namespace
} // namespace quellora::server
