#include "RawClient.h"
#include "ServerKit.h"

#include <future>

namespace quellora::server {
namespace {

using nlohmann::json;

class AuthHttp : public testing::Test
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    Config config = testConfig(directory);
};

TEST_F(AuthHttp, LoginReturnsTheCompleteRecord)
{
    config.service.requestLogs = true;
    config.service.debugLogging = false;
    config.service.heartbeatIntervalSeconds = 77;
    config.service.minimumAppVersion = "1.2.3";
    config.service.defaultPrompt = "Look.";
    config.service.adminMessage =
        AdminMessage{"m1", "BLOCKING", "Head", "Body", "Go", "http://x.example", 5};
    RunningServer server(config, clock);
    server.accounts().setTokenCap(RunningServer::email, 1000);
    addUsage(server.usage(), clock, server.account().id, {500, 260});

    const auto answer = server.login(" Ann@Example.org ", RunningServer::password);
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->status, 200);
    EXPECT_EQ(answer->get_header_value("Cache-Control"), "no-store");
    EXPECT_EQ(answer->get_header_value("Access-Control-Allow-Origin"), "");
    const json record = json::parse(answer->body);
    EXPECT_EQ(record.at("token").get<std::string>().size(), 43U);
    EXPECT_EQ(record.at("sessionId").get<std::string>().size(), 36U);
    const json expected = {{"model", "offline"},
                           {"availableModels",
                            {{{"id", "offline"},
                              {"displayName", "Offline reader"},
                              {"descriptor", "Reads the screenshot's text on this machine"},
                              {"destination", "localhost"}}}},
                           {"connectModel", true},
                           {"defaultPrompt", "Look."},
                           {"minimumAppVersion", "1.2.3"},
                           {"tokensUsed", 760},
                           {"tokensRemaining", 240},
                           {"tokenCap", 1000},
                           {"usageWarning75", true},
                           {"usageWarning90", false},
                           {"plan", "local"},
                           {"subscriptionStatus", "active"},
                           {"heartbeatIntervalSeconds", 77},
                           {"adminMessage",
                            {{"id", "m1"},
                             {"type", "BLOCKING"},
                             {"headerText", "Head"},
                             {"bodyMarkdown", "Body"},
                             {"actionLabel", "Go"},
                             {"actionUrl", "http://x.example"},
                             {"forceUpdateInMinutes", 5}}},
                           {"requestLogs", true},
                           {"debugLogging", false}};
    EXPECT_EQ(record.at("config"), expected);
}

TEST_F(AuthHttp, UnconfiguredFieldsAreOmitted)
{
    RunningServer server(config, clock);
    const json record =
        json::parse(server.login(RunningServer::email, RunningServer::password)->body).at("config");
    EXPECT_FALSE(record.contains("adminMessage"));
    EXPECT_FALSE(record.contains("requestLogs"));
    EXPECT_FALSE(record.contains("debugLogging"));
    EXPECT_EQ(record.at("tokenCap"), UsageLedger::unlimitedAllowance);
}

TEST_F(AuthHttp, WrongPasswordAndUnknownEmailGetTheSameReply)
{
    RunningServer server(config, clock);
    const auto wrong = server.login(RunningServer::email, "nope");
    const auto unknown = server.login("bob@example.org", "nope");
    EXPECT_EQ(wrong->status, 401);
    EXPECT_EQ(unknown->status, 401);
    EXPECT_EQ(wrong->body, unknown->body);
}

TEST_F(AuthHttp, UnknownEmailTakesAsLongAsAWrongPassword)
{
    config.security.passwordCost = PasswordCost{3, 32U * 1024U * 1024U};
    RunningServer server(config, clock);
    const auto timed = [&](const std::string &email) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(server.login(email, "nope")->status, 401);
        return std::chrono::steady_clock::now() - start;
    };
    const auto known = timed(RunningServer::email);
    const auto unknown = timed("bob@example.org");
    // Without a password check the unknown address would be answered much faster.
    EXPECT_GT(unknown * 5, known);
}

TEST_F(AuthHttp, SuspendedAccountGets403OnlyWithTheRightPassword)
{
    RunningServer server(config, clock);
    const std::string token = server.token();
    server.accounts().setSuspended(RunningServer::email, true);
    EXPECT_EQ(server.login(RunningServer::email, "nope")->status, 401);
    EXPECT_EQ(server.login(RunningServer::email, RunningServer::password)->status, 403);
    EXPECT_EQ(server.verify(token)->status, 403);
    EXPECT_EQ(server.query(token)->status, 403);
    server.accounts().setSuspended(RunningServer::email, false);
    EXPECT_EQ(server.verify(token)->status, 200);
}

TEST_F(AuthHttp, RepeatedFailuresAreThrottledPerEmail)
{
    config.limits.loginFailures = 3;
    config.limits.loginWindow = std::chrono::seconds(60);
    RunningServer server(config, clock);
    for (const char *email : {RunningServer::email, "bob@example.org"}) {
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(server.login(email, "nope")->status, 401);
        const auto throttled = server.login(email, RunningServer::password);
        ASSERT_EQ(throttled->status, 429);
        EXPECT_EQ(json::parse(throttled->body), json({{"resetInSeconds", 60}}));
    }
    clock.advance(std::chrono::seconds(61));
    EXPECT_EQ(server.login(RunningServer::email, RunningServer::password)->status, 200);
}

TEST_F(AuthHttp, SuccessfulSignInResetsTheFailureCount)
{
    config.limits.loginFailures = 2;
    RunningServer server(config, clock);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(server.login(RunningServer::email, "nope")->status, 401);
        EXPECT_EQ(server.login(RunningServer::email, RunningServer::password)->status, 200);
    }
}

TEST_F(AuthHttp, AuthRequestsAreRateLimited)
{
    config.limits.authRequestsPerMinute = 3;
    RunningServer server(config, clock);
    const std::string token = server.token();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(server.verify(token)->status, 200);
    EXPECT_EQ(server.verify(token)->status, 429);
}

TEST_F(AuthHttp, SignInsHoldUpNoOtherRequest)
{
    config.security.passwordCost = PasswordCost();
    config.server.threads = 2;
    RunningServer server(config, clock);
    const std::string body = R"({"email":"ann@example.org","password":"correct horse"})";
    std::vector<std::future<int>> signIns;
    for (int i = 0; i < 24; ++i) {
        RawClient client(server.port());
        client.send("POST /api/auth/app-login HTTP/1.1\r\nHost: localhost\r\n"
                    "Content-Type: application/json\r\nContent-Length: " +
                    std::to_string(body.size()) + "\r\n\r\n" + body);
        signIns.push_back(std::async(std::launch::async, [client = std::move(client)]() mutable {
            return client.readReply().status;
        }));
    }
    EXPECT_EQ(server.client().Get("/readyz")->status, 200);
    EXPECT_EQ(signIns.back().wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    for (auto &signIn : signIns)
        EXPECT_EQ(signIn.get(), 200);
}

TEST_F(AuthHttp, BehindATrustedProxyEachClientHasItsOwnRate)
{
    config.limits.authRequestsPerMinute = 1;
    for (const bool isTrusted : {false, true}) {
        if (isTrusted)
            config.server.trustedProxies.add("127.0.0.1");
        RunningServer server(config, clock);
        const auto statusFor = [&](const std::string &client) {
            return server.client()
                .Post("/api/auth/app-verify",
                      {{"Authorization", "Bearer " + server.token()}, {"X-Forwarded-For", client}},
                      "{}", "application/json")
                ->status;
        };
        EXPECT_EQ(statusFor("1.2.3.4"), 200);
        EXPECT_EQ(statusFor("5.6.7.8"), isTrusted ? 200 : 429);
        EXPECT_EQ(statusFor("9.9.9.9, 1.2.3.4"), 429);
    }
}

TEST_F(AuthHttp, VerifyKeepsTheTokenAndRefreshesTheConfiguration)
{
    RunningServer server(config, clock);
    const json login =
        json::parse(server.login(RunningServer::email, RunningServer::password)->body);
    server.accounts().setPlan(RunningServer::email, "team");
    const auto answer = server.verify(login.at("token"));
    ASSERT_EQ(answer->status, 200);
    const json record = json::parse(answer->body);
    EXPECT_EQ(record.at("token"), login.at("token"));
    EXPECT_EQ(record.at("sessionId"), login.at("sessionId"));
    EXPECT_EQ(record.at("config").at("plan"), "team");
}

TEST_F(AuthHttp, UnknownExpiredAndRevokedTokensAreRejected)
{
    RunningServer server(config, clock);
    EXPECT_EQ(server.verify("")->status, 401);
    EXPECT_EQ(server.verify("nonsense")->status, 401);
    const std::string expired = server.token();
    clock.advance(config.security.sessionLifetime);
    EXPECT_EQ(server.verify(expired)->status, 401);
    const std::string ended = server.token();
    server.accounts().setPassword(RunningServer::email, "another one");
    EXPECT_EQ(server.verify(ended)->status, 401);
    EXPECT_EQ(server.query(ended)->status, 401);
}

TEST_F(AuthHttp, BrowserTokenCanBeExchangedOnce)
{
    RunningServer server(config, clock);
    const std::string handover = server.sessions().issueHandover(server.account().id).token;
    EXPECT_EQ(server.query(handover)->status, 401);
    const auto answer = server.verify(handover);
    ASSERT_EQ(answer->status, 200);
    const std::string token = json::parse(answer->body).at("token");
    EXPECT_NE(token, handover);
    EXPECT_EQ(server.verify(token)->status, 200);
    EXPECT_EQ(server.verify(handover)->status, 401);
}

TEST_F(AuthHttp, BrowserTokenOfASuspendedAccountIsRejected)
{
    RunningServer server(config, clock);
    const std::string handover = server.sessions().issueHandover(server.account().id).token;
    server.accounts().setSuspended(RunningServer::email, true);
    EXPECT_EQ(server.verify(handover)->status, 403);
}

TEST_F(AuthHttp, MalformedBodiesAreBadRequests)
{
    RunningServer server(config, clock);
    EXPECT_EQ(server.postJson("/api/auth/app-login", "", json::array())->status, 400);
    EXPECT_EQ(server.postJson("/api/auth/app-login", "", {{"email", "a@b"}})->status, 400);
    EXPECT_EQ(server.postJson("/api/auth/app-login", "", {{"email", 1}, {"password", "x"}})->status,
              400);
    EXPECT_EQ(server.client().Post("/api/auth/app-login", "{", "application/json")->status, 400);
    EXPECT_EQ(server.postJson("/api/auth/app-verify", server.token(), 1)->status, 400);
}

TEST_F(AuthHttp, OnlyJsonBodiesAreAccepted)
{
    RunningServer server(config, clock);
    const std::string body = R"({"email":"ann@example.org","password":"correct horse"})";
    EXPECT_EQ(server.client().Post("/api/auth/app-login", body, "text/plain")->status, 415);
    EXPECT_EQ(server.client()
                  .Post("/api/auth/app-login", body, "application/json; charset=utf-8")
                  ->status,
              200);
}

TEST_F(AuthHttp, OversizedBodyIsRejectedWithAReply)
{
    RunningServer server(config, clock);
    const auto answer = server.client().Post(
        "/api/auth/app-login", std::string(24U * 1024U * 1024U, 'x'), "application/json");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 413);
}

TEST_F(AuthHttp, ForeignHostHeadersAreRejected)
{
    config.server.allowedHosts = {"Quellora.Team.example"};
    RunningServer server(config, clock);
    const auto status = [&](const std::string &host) {
        return server.client().Get("/healthz", {{"Host", host}})->status;
    };
    EXPECT_EQ(status("127.0.0.1:" + std::to_string(server.port())), 200);
    EXPECT_EQ(status("localhost"), 200);
    EXPECT_EQ(status("[::1]:1"), 200);
    EXPECT_EQ(status("quellora.team.example:80"), 200);
    EXPECT_EQ(status("evil.example"), 421);
    EXPECT_EQ(status("127.0.0.1.evil.example"), 421);
    for (const char *odd :
         {"[::1", "[::1]evil.example", "[::1]:1@evil.example", "127.0.0.1:80@evil.example",
          "127.0.0.1:123456", "127.0.0.1:x", "localhost:", "localhost."})
        EXPECT_EQ(status(odd), std::string_view(odd) == "localhost:" ? 200 : 421) << odd;
    EXPECT_EQ(
        server.client()
            .Post("/api/auth/app-verify", {{"Host", "evil.example"}}, "{}", "application/json")
            ->status,
        421);
}

TEST_F(AuthHttp, CrossSiteRequestsAreRejected)
{
    RunningServer server(config, clock);
    const std::string body = R"({"email":"ann@example.org","password":"correct horse"})";
    const auto status = [&](const httplib::Headers &headers) {
        return server.client()
            .Post("/api/auth/app-login", headers, body, "application/json")
            ->status;
    };
    EXPECT_EQ(status({{"Origin", "http://evil.example"}}), 403);
    EXPECT_EQ(status({{"Origin", "null"}}), 403);
    EXPECT_EQ(status({{"Sec-Fetch-Site", "cross-site"}}), 403);
    EXPECT_EQ(status({{"Origin", "http://127.0.0.1:" + std::to_string(server.port())},
                      {"Sec-Fetch-Site", "same-origin"}}),
              200);
}

TEST_F(AuthHttp, NoCrossOriginHeadersAreSent)
{
    RunningServer server(config, clock);
    const auto preflight =
        server.client().Options("/api/proxy/query", {{"Origin", "http://evil.example"},
                                                     {"Access-Control-Request-Method", "POST"}});
    ASSERT_TRUE(preflight);
    EXPECT_EQ(preflight->status, 404);
    EXPECT_EQ(preflight->get_header_value("Access-Control-Allow-Origin"), "");
}

TEST_F(AuthHttp, HealthCheckNeedsNoSession)
{
    RunningServer server(config, clock);
    const auto answer = server.client().Get("/healthz");
    ASSERT_EQ(answer->status, 200);
    EXPECT_EQ(json::parse(answer->body), json({{"status", "ok"}, {"model", "offline"}}));
}

TEST_F(AuthHttp, UnknownPathsAreNotFound)
{
    RunningServer server(config, clock);
    EXPECT_EQ(server.client().Get("/nothing")->status, 404);
    EXPECT_EQ(server.client().Get("/api/proxy/query")->status, 404);
}

TEST_F(AuthHttp, BindingATakenPortFails)
{
    RunningServer first(config, clock);
    config.server.port = first.port();
    const PasswordHasher hasher(weakCost());
    SqliteDatabase database(config.dataFile);
    BackendServer second(config, database, hasher, clock);
    const auto port = second.bind();
    ASSERT_FALSE(port);
    EXPECT_NE(port.error().find(std::to_string(first.port())), std::string::npos);
}

TEST_F(AuthHttp, DatabaseErrorIsAnInternalErrorWithoutDetails)
{
    RunningServer server(config, clock);
    {
        SqliteDatabase other(config.dataFile);
        other.execute("DROP TABLE sessions");
    }
    const auto answer = server.verify("any");
    ASSERT_EQ(answer->status, 500);
    EXPECT_EQ(answer->body.find("sessions"), std::string::npos);
}

} // namespace
} // namespace quellora::server
