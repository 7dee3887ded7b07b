#include "ServerKit.h"

#include "base/Text.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

namespace quellora::server {
namespace {

using nlohmann::json;

/// A provider that answers every POST with the given handler and keeps the last request.
class FakeProvider
{
public:
    using Handler = std::function<void(const httplib::Request &, httplib::Response &)>;

    explicit FakeProvider(Handler handler)
    {
        m_server.Post(".*", [this, handler = std::move(handler)](const httplib::Request &request,
                                                                 httplib::Response &response) {
            path = request.path;
            body = request.body;
            headers = request.headers;
            handler(request, response);
        });
        m_port = m_server.bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
        m_server.set_keep_alive_max_count(1);
        while (!m_server.is_running())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~FakeProvider()
    {
        m_server.stop();
        m_thread.join();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }
    std::string header(const std::string &name) const
    {
        const auto found = headers.find(name);
        return found == headers.end() ? "" : found->second;
    }

    std::string path;
    std::string body;
    httplib::Headers headers;

private:
    httplib::Server m_server;
    int m_port = 0;
    std::thread m_thread;
};

/// Answers 200 with an event stream.
FakeProvider::Handler streaming(std::string stream)
{
    return [stream = std::move(stream)](const httplib::Request &, httplib::Response &response) {
        response.set_content(stream, "text/event-stream");
    };
}

FakeProvider::Handler status(int code, const httplib::Headers &headers = {})
{
    return [code, headers](const httplib::Request &, httplib::Response &response) {
        response.status = code;
        response.headers = headers;
        response.set_content(R"({"error":{"type":"x","message":"secret detail"}})",
                             "application/json");
    };
}

const std::string anthropicStart =
    "event: message_start\ndata: {\"type\":\"message_start\",\"message\":{\"usage\":"
    "{\"input_tokens\":50,\"output_tokens\":1}}}\n\n"
    "event: ping\ndata: {\"type\":\"ping\"}\n\n"
    "data: {\"type\":\"content_block_start\",\"index\":0,\"content_block\":{\"type\":\"text\","
    "\"text\":\"\"}}\n\n"
    "data: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"Hel\"}}"
    "\n\n";
const std::string anthropicAnswer =
    anthropicStart +
    "data: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"lo\"}}"
    "\n\ndata: {\"type\":\"content_block_stop\",\"index\":0}\n\n"
    "data: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":\"end_turn\"},\"usage\":"
    "{\"output_tokens\":25}}\n\n"
    "data: {\"type\":\"message_stop\"}\n\n";
const std::string openAiStart =
    "data: {\"choices\":[{\"delta\":{\"role\":\"assistant\",\"content\":\"\"}}]}\n\n"
    "data: {\"choices\":[{\"delta\":{\"content\":\"Hel\"}}]}\n\n";
const std::string openAiAnswer =
    openAiStart + "data: {\"choices\":[{\"delta\":{\"content\":\"lo\"}}]}\n\n"
                  "data: {\"choices\":[{\"delta\":{},\"finish_reason\":\"stop\"}]}\n\n"
                  "data: {\"choices\":[],\"usage\":{\"prompt_tokens\":7,\"completion_tokens\":3}}"
                  "\n\ndata: [DONE]\n\n";

/// The parameter is the name of the provider.
class Upstream : public testing::TestWithParam<std::string>
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    Config config = testConfig(directory);

    bool anthropic() const { return GetParam() == "anthropic"; }
    std::string wholeAnswer() const { return anthropic() ? anthropicAnswer : openAiAnswer; }
    std::string startedAnswer() const { return anthropic() ? anthropicStart : openAiStart; }

    /// A server with the model "m" of the provider, whose table consists of @p lines.
    std::unique_ptr<RunningServer> serverWith(const std::string &lines,
                                              std::map<std::string, std::string> variables = {})
    {
        const Config parsed = testConfig(
            directory,
            "[" + GetParam() + "]\n" + lines +
                "[[models]]\nid = 'm'\nupstream = 'upstream-m'\nprovider = '" + GetParam() + "'\n",
            environmentOf(std::move(variables)));
        config.providers = parsed.providers;
        config.models = parsed.models;
        config.defaultModel = parsed.defaultModel;
        return std::make_unique<RunningServer>(config, clock);
    }

    std::unique_ptr<RunningServer> serverFor(const std::string &url)
    {
        return serverWith("base_url = '" + url +
                          "'\napi_key = 'the-key'\nmax_output_tokens = 333\n");
    }

    /// The API key of the last request.
    std::string sentKey(const FakeProvider &provider) const
    {
        return anthropic() ? provider.header("x-api-key") : provider.header("Authorization");
    }
    std::string keyHeader(const std::string &key) const
    {
        return anthropic() ? key : "Bearer " + key;
    }

    int statusOf(const FakeProvider &provider)
    {
        const auto server = serverFor(provider.url());
        const auto answer = server->query(server->token());
        EXPECT_EQ(answer->body.find("secret detail"), std::string::npos);
        EXPECT_EQ(server->usage().queries(server->account().id), 0);
        return answer->status;
    }
};

TEST_P(Upstream, CompleteAnswerIsStreamedWithTheProvidersTokenCounts)
{
    const FakeProvider provider(streaming(wholeAnswer()));
    const auto server = serverFor(provider.url());
    const auto answer = server->query(server->token());
    ASSERT_EQ(answer->status, 200);
    EXPECT_EQ(answerText(answer->body), "Hello");
    ASSERT_EQ(lastType(answer->body), "done");
    EXPECT_EQ(events(answer->body).back().at("tokensUsed"), anthropic() ? 75 : 10);
    EXPECT_EQ(server->usage().current(server->account().id).input, anthropic() ? 50 : 7);
}

TEST_P(Upstream, QuestionIsSentInTheProvidersFormat)
{
    const FakeProvider provider(streaming(wholeAnswer()));
    const auto server = serverFor(provider.url() + "/prefix/");
    const std::string image = base64Encoded(fakeJpeg());
    ASSERT_EQ(server->query(server->token(), "Why?", {{"imageBase64", image}})->status, 200);
    const json body = json::parse(provider.body);
    EXPECT_EQ(body.at("model"), "upstream-m");
    EXPECT_EQ(body.at("stream"), true);
    EXPECT_EQ(body.at("max_tokens"), 333);
    const json &content = body.at("messages").at(0).at("content");
    EXPECT_EQ(body.at("messages").size(), 1U);
    EXPECT_EQ(sentKey(provider), keyHeader("the-key"));
    if (anthropic()) {
        EXPECT_EQ(provider.path, "/prefix/v1/messages");
        EXPECT_EQ(provider.header("anthropic-version"), "2023-06-01");
        EXPECT_EQ(
            content,
            json::array(
                {{{"type", "image"},
                  {"source", {{"type", "base64"}, {"media_type", "image/jpeg"}, {"data", image}}}},
                 {{"type", "text"}, {"text", "Why?"}}}));
    } else {
        EXPECT_EQ(provider.path, "/prefix/v1/chat/completions");
        EXPECT_EQ(body.at("stream_options"), json({{"include_usage", true}}));
        EXPECT_EQ(content,
                  json::array({{{"type", "text"}, {"text", "Why?"}},
                               {{"type", "image_url"},
                                {"image_url", {{"url", "data:image/jpeg;base64," + image}}}}}));
    }
}

TEST_P(Upstream, EnvironmentOverridesTheFile)
{
    const FakeProvider provider(streaming(wholeAnswer()));
    const std::string prefix = anthropic() ? "ANTHROPIC" : "OPENAI";
    const auto server =
        serverWith("base_url = 'http://no-such-host.invalid'\napi_key = 'file'\n",
                   {{prefix + "_BASE_URL", provider.url()}, {prefix + "_API_KEY", "variable"}});
    EXPECT_EQ(server->query(server->token())->status, 200);
    EXPECT_EQ(sentKey(provider), keyHeader("variable"));
}

TEST_P(Upstream, KeyFileProvidesItsFirstLine)
{
    const FakeProvider provider(streaming(wholeAnswer()));
    const auto file = directory.path() / "key";
    std::ofstream(file) << "secret-key\r\nrest\n";
    const auto server =
        serverWith("base_url = '" + provider.url() + "'\napi_key_file = '" + file.string() + "'\n");
    EXPECT_EQ(server->query(server->token())->status, 200);
    EXPECT_EQ(sentKey(provider), keyHeader("secret-key"));
}

TEST_P(Upstream, RefusedConnectionIsABadGateway)
{
    // A port that nobody listens on any more.
    std::string url;
    {
        const FakeProvider gone(status(200));
        url = gone.url();
    }
    const auto server = serverFor(url);
    EXPECT_EQ(server->query(server->token())->status, 502);
}

TEST_P(Upstream, UnknownHostIsABadGateway)
{
    config.timing.keepAlive = std::chrono::seconds(20);
    const auto server = serverFor("http://no-such-host.invalid");
    auto client = server->client();
    client.set_read_timeout(std::chrono::seconds(30));
    const auto answer =
        client.Post("/api/proxy/query", {{"Authorization", "Bearer " + server->token()}},
                    R"({"prompt":"p"})", "application/json");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 502);
}

TEST_P(Upstream, RejectedKeyIsABadGatewayAndNotAnAuthError)
{
    EXPECT_EQ(statusOf(FakeProvider(status(401))), 502);
    EXPECT_EQ(statusOf(FakeProvider(status(403))), 502);
}

TEST_P(Upstream, OtherStatusesAreABadGateway)
{
    for (const int code : {301, 400, 404, 500, 503, 529})
        EXPECT_EQ(statusOf(FakeProvider(status(code))), 502) << code;
}

TEST_P(Upstream, RateLimitsAreForwarded)
{
    const auto seconds = [&](const httplib::Headers &headers) {
        const FakeProvider provider(status(429, headers));
        const auto server = serverFor(provider.url());
        const auto answer = server->query(server->token());
        EXPECT_EQ(answer->status, 429);
        return json::parse(answer->body).at("resetInSeconds").get<int>();
    };
    EXPECT_EQ(seconds({{"Retry-After", "12"}}), 12);
    EXPECT_EQ(seconds({}), 30);
    EXPECT_EQ(seconds({{"Retry-After", "Wed, 21 Oct 2026 07:28:00 GMT"}}), 30);
    EXPECT_EQ(seconds({{"Retry-After", "0"}}), 1);
    EXPECT_EQ(seconds({{"Retry-After", "9999999"}}), 3600);
}

TEST_P(Upstream, MalformedStreamIsABadGateway)
{
    EXPECT_EQ(statusOf(FakeProvider(streaming("<html>hello</html>"))), 502);
    EXPECT_EQ(statusOf(FakeProvider(streaming("data: {not json}\n\n"))), 502);
    EXPECT_EQ(statusOf(FakeProvider(streaming("data: 5\n\n"))), 502);
    EXPECT_EQ(statusOf(FakeProvider(streaming(""))), 502);
    EXPECT_EQ(statusOf(FakeProvider(streaming("data: " + std::string(1U << 21U, 'x')))), 502);
}

TEST_P(Upstream, NonHttpPeerIsABadGateway)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr *>(&address), length), 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    ::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length);
    std::thread peer([listener] {
        for (int connection; (connection = ::accept(listener, nullptr, nullptr)) >= 0;) {
            char buffer[65536];
            [[maybe_unused]] const auto got = ::read(connection, buffer, sizeof buffer);
            [[maybe_unused]] const auto sent = ::write(connection, "SSH-2.0-hello\r\n", 15);
            ::close(connection);
        }
    });
    const auto server = serverFor("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)));
    EXPECT_EQ(server->query(server->token())->status, 502);
    ::shutdown(listener, SHUT_RDWR);
    peer.join();
    ::close(listener);
}

TEST_P(Upstream, DisconnectMidStreamEndsTheAnswerWithoutDone)
{
    const std::string start = startedAnswer();
    const FakeProvider provider([&start](const httplib::Request &, httplib::Response &response) {
        response.set_chunked_content_provider("text/event-stream",
                                              [&start](std::size_t, httplib::DataSink &sink) {
                                                  sink.write(start.data(), start.size());
                                                  return false;
                                              });
    });
    const auto server = serverFor(provider.url());
    const auto answer = server->query(server->token());
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_EQ(answerText(answer->body), "Hel");
    EXPECT_EQ(lastType(answer->body), "chunk");
    EXPECT_GT(server->usage().current(server->account().id).total(), 0);
}

TEST_P(Upstream, ErrorMidStreamEndsTheAnswerWithoutDone)
{
    const std::string error =
        anthropic() ? "data: {\"type\":\"error\",\"error\":{\"type\":\"overloaded_error\"}}\n\n"
                    : "data: {\"error\":{\"message\":\"secret detail\"}}\n\n";
    const FakeProvider provider(streaming(startedAnswer() + error + wholeAnswer()));
    const auto server = serverFor(provider.url());
    const auto answer = server->query(server->token());
    EXPECT_EQ(answerText(answer->body), "Hel");
    EXPECT_EQ(lastType(answer->body), "chunk");
    EXPECT_EQ(answer->body.find("secret detail"), std::string::npos);
}

TEST_P(Upstream, StallMidStreamEndsTheAnswer)
{
    config.timing.keepAlive = std::chrono::milliseconds(100);
    config.timing.stall = std::chrono::milliseconds(1000);
    std::promise<void> over;
    auto ended = over.get_future().share();
    const std::string start = startedAnswer();
    const FakeProvider provider([&](const httplib::Request &, httplib::Response &response) {
        response.set_chunked_content_provider("text/event-stream",
                                              [&, ended](std::size_t, httplib::DataSink &sink) {
                                                  sink.write(start.data(), start.size());
                                                  ended.wait();
                                                  return false;
                                              });
    });
    const auto server = serverFor(provider.url());
    const auto answer = server->query(server->token());
    over.set_value();
    EXPECT_EQ(answerText(answer->body), "Hel");
    EXPECT_EQ(lastType(answer->body), "chunk");
    EXPECT_NE(answer->body.find(": keep-alive"), std::string::npos);
}

TEST_P(Upstream, DisconnectedClientCancelsTheTransfer)
{
    config.timing.stall = std::chrono::seconds(60);
    std::promise<void> left;
    const std::string start = startedAnswer();
    bool started = false;
    const FakeProvider provider([&](const httplib::Request &, httplib::Response &response) {
        response.set_chunked_content_provider(
            "text/event-stream",
            [&](std::size_t, httplib::DataSink &sink) {
                if (!started) {
                    started = true;
                    return sink.write(start.data(), start.size());
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                return sink.is_writable();
            },
            [&left](bool) { left.set_value(); });
    });
    const auto server = serverFor(provider.url());
    httplib::Request request;
    request.method = "POST";
    request.path = "/api/proxy/query";
    request.body = R"({"prompt":"p"})";
    request.headers = {{"Content-Type", "application/json"},
                       {"Authorization", "Bearer " + server->token()}};
    request.content_receiver = [](const char *, size_t, auto, auto) { return false; };
    auto client = std::make_unique<httplib::Client>("127.0.0.1", server->port());
    EXPECT_FALSE(client->send(request));
    client.reset();
    EXPECT_EQ(left.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_P(Upstream, PassingFailureIsRepeatedBeforeTheFirstText)
{
    std::atomic<int> requests{0};
    const std::string whole = wholeAnswer();
    const FakeProvider provider([&](const httplib::Request &, httplib::Response &response) {
        if (++requests == 1) {
            response.status = 529;
            response.set_header("Retry-After", "1");
        } else {
            response.set_content(whole, "text/event-stream");
        }
    });
    const auto server = serverFor(provider.url());
    const auto begin = std::chrono::steady_clock::now();
    const auto answer = server->query(server->token());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_EQ(answerText(answer->body), "Hello");
    EXPECT_EQ(events(answer->body).back().at("usedFallback"), false);
    EXPECT_EQ(requests, 2);
    EXPECT_EQ(server->usage().queries(server->account().id), 1);
}

TEST_P(Upstream, AnotherModelAnswersAndIsCounted)
{
    std::vector<std::string> asked;
    const std::string whole = wholeAnswer();
    const FakeProvider provider([&](const httplib::Request &request, httplib::Response &response) {
        asked.push_back(json::parse(request.body).at("model"));
        if (asked.back() == "upstream-n")
            response.set_content(whole, "text/event-stream");
        else
            response.status = 404;
    });
    const auto server = serverWith(
        "base_url = '" + provider.url() +
        "'\napi_key = 'k'\n[[models]]\nid = 'first'\nfallback = ['m', 'n']\nprovider = '" +
        GetParam() + "'\n[[models]]\nid = 'n'\nupstream = 'upstream-n'\nprovider = '" + GetParam() +
        "'\n");
    const auto answer = server->query(server->token(), "Why?", {{"model", "first"}});
    EXPECT_EQ(answerText(answer->body), "Hello");
    EXPECT_EQ(events(answer->body).back().at("usedFallback"), true);
    EXPECT_EQ(asked, (std::vector<std::string>{"first", "upstream-m", "upstream-n"}));
    const auto counted = server->usage().daily("2000-01-01", "2100-01-01");
    ASSERT_EQ(counted.size(), 1U);
    EXPECT_EQ(counted.front().model, "n");
    EXPECT_EQ(counted.front().queries, 1);
}

TEST_P(Upstream, CutAnswersSayWhy)
{
    const std::string end =
        anthropic() ? "data: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":"
                      "\"max_tokens\"}}\n\ndata: {\"type\":\"message_stop\"}\n\n"
                    : "data: {\"choices\":[{\"delta\":{},\"finish_reason\":\"length\"}]}"
                      "\n\ndata: [DONE]\n\n";
    const FakeProvider provider(streaming(startedAnswer() + end));
    const auto server = serverFor(provider.url());
    const auto answer = server->query(server->token());
    EXPECT_EQ(answerText(answer->body),
              "Hel\n\n*The answer ends here: it reached the length limit.*");
    EXPECT_EQ(lastType(answer->body), "done");
}

TEST_P(Upstream, BrokenOffAnswerIsCountedByItsText)
{
    const std::string text(4000, 'x');
    const std::string event = anthropic()
                                  ? json({{"type", "content_block_delta"},
                                          {"delta", {{"type", "text_delta"}, {"text", text}}}})
                                        .dump()
                                  : json({{"choices", {{{"delta", {{"content", text}}}}}}}).dump();
    const FakeProvider provider(streaming(startedAnswer() + "data: " + event + "\n\n"));
    const auto server = serverFor(provider.url());
    EXPECT_EQ(lastType(server->query(server->token())->body), "chunk");
    EXPECT_GE(server->usage().current(server->account().id).output, 1000);
}

TEST_P(Upstream, ZeroTokensAreNotBelieved)
{
    const std::string end = anthropic()
                                ? "data: {\"type\":\"message_delta\",\"usage\":{\"input_tokens\":0,"
                                  "\"output_tokens\":0}}\n\ndata: {\"type\":\"message_stop\"}\n\n"
                                : "data: {\"choices\":[],\"usage\":{\"prompt_tokens\":0,"
                                  "\"completion_tokens\":0}}\n\ndata: [DONE]\n\n";
    const FakeProvider provider(streaming(startedAnswer() + end));
    const auto server = serverFor(provider.url());
    const auto answer = server->query(server->token(), std::string(40, 'p'));
    EXPECT_EQ(events(answer->body).back().at("tokensUsed"), 11);
    EXPECT_EQ(server->usage().current(server->account().id).total(), 11);
}

TEST_P(Upstream, SilenceAfterTheRequestIsABadGateway)
{
    config.timing.firstByte = std::chrono::milliseconds(100);
    std::promise<void> over;
    auto ended = over.get_future().share();
    const FakeProvider provider(
        [ended](const httplib::Request &, httplib::Response &) { ended.wait(); });
    const auto server = serverFor(provider.url());
    EXPECT_EQ(server->query(server->token())->status, 502);
    over.set_value();
}

INSTANTIATE_TEST_SUITE_P(Providers, Upstream, testing::Values("anthropic", "openai"),
                         [](const auto &each) { return each.param; });

class AnthropicOnly : public Upstream
{};

TEST_P(AnthropicOnly, RateLimitEventBeforeTextIsARateLimit)
{
    const FakeProvider provider(
        streaming("data: {\"type\":\"error\",\"error\":{\"type\":\"rate_limit_error\"}}\n\n"));
    EXPECT_EQ(statusOf(provider), 429);
}

TEST_P(AnthropicOnly, EmptyTextIsNotSent)
{
    config.service.defaultPrompt = "";
    const FakeProvider provider(streaming(wholeAnswer()));
    const auto server = serverFor(provider.url());
    server->query(server->token(), " ", {{"imageBase64", base64Encoded(fakeJpeg())}});
    EXPECT_EQ(json::parse(provider.body).at("messages").at(0).at("content").size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Providers, AnthropicOnly, testing::Values("anthropic"));

class OpenAiOnly : public Upstream
{};

TEST_P(OpenAiOnly, FinishReasonWithoutDoneLineCompletesTheAnswer)
{
    const std::string stream =
        openAiStart + "data: {\"choices\":[{\"delta\":{},\"finish_reason\":\"stop\"}]}\n\n";
    const FakeProvider provider(streaming(stream));
    const auto server = serverFor(provider.url() + "/v1");
    const auto answer = server->query(server->token(), std::string(40, 'p'));
    EXPECT_EQ(provider.path, "/v1/chat/completions");
    EXPECT_EQ(lastType(answer->body), "done");
    // Estimated, because this answer has no token counts: 40 bytes are 10 tokens, 3 bytes are 1.
    EXPECT_EQ(events(answer->body).back().at("tokensUsed"), 11);
}

TEST_P(OpenAiOnly, WithoutPictureTheContentIsPlainText)
{
    const FakeProvider provider(streaming(wholeAnswer()));
    const auto server = serverFor(provider.url());
    server->query(server->token(), "Why?");
    EXPECT_EQ(json::parse(provider.body).at("messages").at(0).at("content"), "Why?");
}

INSTANTIATE_TEST_SUITE_P(Providers, OpenAiOnly, testing::Values("openai"));

} // namespace
} // namespace quellora::server
