#include "RawClient.h"

#include "http/HttpServer.h"
#include "http/ResponseStream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <vector>

namespace quellora::server {
namespace {

using std::chrono::milliseconds;

constexpr const char *get = "GET /echo HTTP/1.1\r\nHost: x\r\n\r\n";

std::string post(const std::string &body, const std::string &fields = "",
                 const std::string &path = "/echo")
{
    return "POST " + path + " HTTP/1.1\r\nHost: x\r\n" + fields +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// A stream that does what its test tells it, on the loop of its connection.
class TestStream : public ResponseStream
{
public:
    struct Watch
    {
        std::promise<std::pair<StreamOutput *, EventLoop *>> started;
        std::promise<void> gone;
        std::atomic<int> drains{0};
        std::atomic<int> stops{0};
    };

    explicit TestStream(std::shared_ptr<Watch> watch) : m_watch(std::move(watch)) {}
    void start(StreamOutput &output, EventLoop &loop) override
    {
        m_output = &output;
        m_watch->started.set_value({&output, &loop});
    }
    void drained() override { ++m_watch->drains; }
    void clientGone() override { m_watch->gone.set_value(); }
    void serverStops() override
    {
        ++m_watch->stops;
        m_output->finish();
    }

private:
    std::shared_ptr<Watch> m_watch;
    StreamOutput *m_output = nullptr;
};

class HttpServing : public testing::Test
{
protected:
    HttpLimits limits;
    std::size_t threads = 2;
    std::size_t queue = 16;
    Router router;
    Metrics metrics;
    std::atomic<int> handled{0};
    std::shared_ptr<TestStream::Watch> watch = std::make_shared<TestStream::Watch>();
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    int port = 0;

    HttpServing()
    {
        const auto echo = [this](const Request &request, Response &response) {
            ++handled;
            response.setBody(request.method + ' ' + request.body, "text/plain");
        };
        router.get("/echo", echo);
        router.post("/echo", 1000, echo);
        router.get("/path here/*", [](const Request &request, Response &response) {
            response.setBody(request.path + '|' + request.parameter("a b").value_or("none"),
                             "text/plain");
        });
        router.get("/throw", [](const Request &, Response &) { throw std::runtime_error("x"); });
        router.get(
            "/immediate",
            [](const Request &, Response &response) { response.setBody("at once", "text/plain"); },
            Lane::Immediate);
        router.get("/wait", [this](const Request &, Response &response) {
            if (++handled == 1)
                entered.set_value();
            released.wait();
            response.setBody("waited", "text/plain");
        });
        router.get("/stream", [this](const Request &, Response &response) {
            response.stream = std::make_shared<TestStream>(watch);
        });
    }

    void start()
    {
        m_loops = std::make_unique<EventLoops>(2);
        m_workers = std::make_unique<WorkerPool>(threads, queue);
        m_server = std::make_unique<HttpServer>(
            HttpContext{router, *m_loops, *m_workers, *m_workers, metrics, limits});
        port = m_server->listen("127.0.0.1", 0).value();
    }
    HttpServer &server() { return *m_server; }

    void TearDown() override
    {
        m_server->beginStop();
        m_server->closeAll();
        m_workers->stop();
        m_server->closeAll();
        m_loops->stop();
    }

    /// Runs @p act on the loop of the stream.
    void onStream(const std::function<void(StreamOutput &)> &act)
    {
        if (!m_stream.first)
            m_stream = watch->started.get_future().get();
        m_stream.second->postAndWait([&] { act(*m_stream.first); });
    }

private:
    std::unique_ptr<EventLoops> m_loops;
    std::unique_ptr<WorkerPool> m_workers;
    std::unique_ptr<HttpServer> m_server;
    std::pair<StreamOutput *, EventLoop *> m_stream{nullptr, nullptr};
};

TEST_F(HttpServing, AConnectionServesOneRequestAfterTheOther)
{
    start();
    RawClient client(port);
    client.send(post("one"));
    const RawReply first = client.readReply();
    EXPECT_EQ(first.status, 200);
    EXPECT_EQ(first.body, "POST one");
    EXPECT_EQ(first.field("content-type"), "text/plain");
    EXPECT_EQ(first.field("x-content-type-options"), "nosniff");
    client.send(get);
    const RawReply second = client.readReply();
    EXPECT_EQ(second.body, "GET ");
    EXPECT_NE(first.field("x-request-id"), second.field("x-request-id"));
    EXPECT_EQ(metrics.requests.count({"/echo", "200"}), 2U);
}

TEST_F(HttpServing, ARequestKeepsTheNameThatAProxyGaveIt)
{
    start();
    RawClient client(port);
    client.send("GET /echo HTTP/1.1\r\nHost: x\r\nX-Request-Id: 0123abcd-77\r\n\r\n");
    EXPECT_EQ(client.readReply().field("x-request-id"), "0123abcd-77");
    client.send("GET /echo HTTP/1.1\r\nHost: x\r\nX-Request-Id: evil value\r\n\r\n");
    EXPECT_EQ(client.readReply().field("x-request-id").find("evil"), std::string::npos);
}

TEST_F(HttpServing, RequestsSentAheadAreAnsweredInOrder)
{
    start();
    RawClient client(port);
    client.send(post("one") + post("two") + std::string(get) + post("three"));
    for (const std::string expected : {"POST one", "POST two", "GET ", "POST three"})
        EXPECT_EQ(client.readReply().body, expected);
}

TEST_F(HttpServing, ARequestSentAheadOfAStreamsEndIsAnsweredAfterIt)
{
    start();
    RawClient client(port);
    client.send("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n" + post("next"));
    onStream([](StreamOutput &output) {
        Response head;
        head.headers.set("Content-Type", "text/event-stream");
        output.begin(head);
        output.write("first ");
    });
    EXPECT_TRUE(client.readUntil("first "));
    EXPECT_EQ(client.arrived().find("next"), std::string::npos);
    onStream([](StreamOutput &output) {
        output.write("second");
        output.finish();
    });
    const RawReply stream = client.readReply();
    EXPECT_EQ(stream.body, "first second");
    EXPECT_EQ(stream.field("content-type"), "text/event-stream");
    EXPECT_EQ(client.readReply().body, "POST next");
}

TEST_F(HttpServing, ABodyInPiecesAndInChunksArrivesWhole)
{
    start();
    RawClient client(port);
    const std::string whole = post("hello world");
    for (const char byte : whole)
        ASSERT_TRUE(client.send(std::string(1, byte)));
    EXPECT_EQ(client.readReply().body, "POST hello world");
    client.send("POST /echo HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n"
                "5;note=1\r\nhello\r\n6\r\n world\r\n0\r\nHost: trailer\r\n\r\n");
    EXPECT_EQ(client.readReply().body, "POST hello world");
    client.send(get);
    EXPECT_EQ(client.readReply().status, 200);
}

TEST_F(HttpServing, PathAndParametersAreDecoded)
{
    start();
    RawClient client(port);
    client.send("GET /path%20here/x%2Fy?a+b=c%26d&e HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(client.readReply().body, "/path here/x/y|c&d");
    client.send("GET /path%20here/* HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(client.readReply().status, 404);
    client.send("GET /path%0Ahere/ HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(client.readReply().status, 400);
}

TEST_F(HttpServing, UnknownPathsAndMethodsAreNotFound)
{
    start();
    RawClient client(port);
    for (const std::string line :
         {"GET /nothing", "DELETE /echo", "POST /wait", "OPTIONS *", "GET /echo/", "BREW /echo"}) {
        client.send(line + " HTTP/1.1\r\nHost: x\r\n\r\n");
        EXPECT_EQ(client.readReply().status, 404) << line;
    }
    EXPECT_EQ(handled, 0);
    EXPECT_EQ(metrics.requests.count({"other", "404"}), 6U);
    // A body that nobody reads could be taken for the next request.
    client.send(post(get, "", "/nothing"));
    EXPECT_EQ(client.readReply().status, 404);
    EXPECT_EQ(client.readAll(), "");
    EXPECT_EQ(handled, 0);
}

TEST_F(HttpServing, HeadHasNoBody)
{
    start();
    RawClient client(port);
    client.send("HEAD /echo HTTP/1.1\r\nHost: x\r\n\r\n");
    const RawReply head = client.readReply(false);
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.field("content-length"), "5");
    client.send(get);
    EXPECT_EQ(client.readReply().body, "GET ");
}

TEST_F(HttpServing, OldAndClosingClientsAreLetGo)
{
    start();
    for (const std::string request :
         {"GET /echo HTTP/1.0\r\n\r\n",
          "GET /echo HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"}) {
        RawClient client(port);
        client.send(request);
        const RawReply reply = client.readReply();
        EXPECT_EQ(reply.body, "GET ");
        EXPECT_EQ(reply.field("connection"), "close");
        EXPECT_EQ(client.readAll(), "");
    }
}

TEST_F(HttpServing, AConnectionServesABoundedNumberOfRequests)
{
    limits.requestsPerConnection = 2;
    start();
    RawClient client(port);
    client.send(std::string(get) + get + get);
    EXPECT_EQ(client.readReply().field("connection"), "");
    EXPECT_EQ(client.readReply().field("connection"), "close");
    EXPECT_EQ(client.readAll(), "");
    EXPECT_EQ(handled, 2);
}

TEST_F(HttpServing, HeadsThatServersReadDifferentlyAreRefused)
{
    start();
    const std::string hidden = "GET /echo HTTP/1.1\r\nHost: x\r\n\r\n";
    for (const std::string fields : {
             "Content-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
             "Transfer-Encoding: chunked\r\nContent-Length: 3\r\n\r\n0\r\n\r\n",
             "Content-Length: 0\r\nContent-Length: 3\r\n\r\n",
             "Content-Length: 3\r\nContent-Length: 3\r\n\r\nabc",
             "Content-Length: 0, 3\r\n\r\n",
             "Content-Length: 3, 3\r\n\r\nabc",
             "Content-Length: +3\r\n\r\nabc",
             "Content-Length: -3\r\n\r\nabc",
             "Content-Length: 0x3\r\n\r\nabc",
             "Content-Length: 99999999999999999999999\r\n\r\nabc",
             "Content-Length : 3\r\n\r\nabc",
             "Transfer-Encoding: identity\r\n\r\n",
             "Transfer-Encoding: xchunked\r\n\r\n",
             "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n",
             "Transfer-Encoding: chunked, identity\r\n\r\n",
             "Transfer-Encoding: chunked\r\nTransfer-Encoding: identity\r\n\r\n0\r\n\r\n",
             "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
             "Transfer-Encoding : chunked\r\n\r\n0\r\n\r\n",
             "Transfer-Encoding: chunked\r\n\r\n3x\r\nabc\r\n0\r\n\r\n",
             "Transfer-Encoding: chunked\r\n\r\n-1\r\nabc\r\n0\r\n\r\n",
             "X\x01Y: 1\r\n\r\n",
             "No colon\r\n\r\n",
             "X: a\r\n b\r\n\r\n",
             "X: a\r\n\tb\r\n\r\n",
             "Content-Length:\r\n 3\r\n\r\nabc",
             "Host: x\r\n\r\n",
             "X: a\nY: b",
             "\n",
             "Transfer-Encoding: chunked\r\n\r\n3\nabc\n0\n\n",
             "Transfer-Encoding: chunked\r\n\r\n0\r\nX: a\n\n",
         }) {
        RawClient client(port);
        client.send("POST /echo HTTP/1.1\r\nHost: x\r\n" + fields + hidden);
        EXPECT_EQ(client.readReply().status, 400) << fields;
        EXPECT_EQ(client.readAll(), "") << fields;
    }
    RawClient nameless(port);
    nameless.send("GET /echo HTTP/1.1\r\n\r\n" + hidden);
    EXPECT_EQ(nameless.readReply().status, 400);
    EXPECT_EQ(nameless.readAll(), "");
    RawClient old(port);
    old.send("POST /echo HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + hidden);
    EXPECT_EQ(old.readReply().status, 400);
    EXPECT_EQ(handled, 0);
}

TEST_F(HttpServing, WhatIsNoHttpIsRefused)
{
    start();
    for (const std::string begin :
         {"SSH-2.0-hello\r\n\r\n", "GET\r\n\r\n", "\x16\x03\x01\x02\r\n\r\n", "GET /echo\r\n\r\n",
          " GET /echo HTTP/1.1\r\n\r\n"}) {
        RawClient client(port);
        client.send(begin);
        EXPECT_EQ(client.readReply().status, 400) << begin;
        EXPECT_EQ(client.readAll(), "");
    }
    RawClient newer(port);
    newer.send("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n");
    EXPECT_GE(newer.readReply().status, 400);
    EXPECT_EQ(handled, 0);
}

TEST_F(HttpServing, EndlessHeadsAreRefused)
{
    limits.headBytes = 4096;
    start();
    RawClient one(port);
    one.send("GET /echo HTTP/1.1\r\nHost: x\r\nX: " + std::string(5000, 'y'));
    EXPECT_EQ(one.readReply().status, 431);
    RawClient many(port);
    std::string fields;
    for (int i = 0; i < 600; ++i)
        fields += "X" + std::to_string(i) + ": y\r\n";
    many.send("GET /echo HTTP/1.1\r\nHost: x\r\n" + fields + "\r\n");
    EXPECT_EQ(many.readReply().status, 431);
    EXPECT_EQ(many.readAll(), "");
    EXPECT_EQ(handled, 0);
}

TEST_F(HttpServing, EndlessLinesBetweenChunksAreRefused)
{
    limits.headBytes = 4096;
    start();
    for (const std::string begin : {"3;", "0\r\nX: ", "3\r\nabc\r\n3;x="}) {
        RawClient client(port);
        client.send("POST /echo HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n" + begin +
                    std::string(5000, 'y'));
        EXPECT_EQ(client.readReply().status, 400) << begin;
        EXPECT_EQ(client.readAll(), "");
    }
    RawClient fitting(port);
    fitting.send("POST /echo HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n3;x=" +
                 std::string(1000, 'y') + "\r\nabc\r\n0\r\nX: y\r\n\r\n");
    EXPECT_EQ(fitting.readReply().body, "POST abc");
    EXPECT_EQ(handled, 1);
}

TEST_F(HttpServing, ASlowHeadAndASlowBodyTimeOut)
{
    limits.head = milliseconds(150);
    limits.bodySilence = milliseconds(150);
    start();
    RawClient head(port);
    // A byte now and then does not help.
    const std::string line = "GET /echo HTTP/1.1\r\nHost: x\r\nX: ";
    head.send(line);
    auto trickle = std::async(std::launch::async, [&head] {
        while (head.send("y"))
            std::this_thread::sleep_for(milliseconds(10));
    });
    EXPECT_EQ(head.readReply().status, 408);
    EXPECT_EQ(head.readAll(), "");
    head.endSending();
    trickle.get();
    RawClient body(port);
    body.send("POST /echo HTTP/1.1\r\nHost: x\r\nContent-Length: 10\r\n\r\nabc");
    EXPECT_EQ(body.readReply().status, 408);
    EXPECT_EQ(body.readAll(), "");
    EXPECT_EQ(handled, 0);
}

TEST_F(HttpServing, ABodyThatTricklesForeverTimesOut)
{
    limits.body = milliseconds(300);
    start();
    RawClient client(port);
    client.send("POST /echo HTTP/1.1\r\nHost: x\r\nContent-Length: 900\r\n\r\n");
    auto trickle = std::async(std::launch::async, [&client] {
        while (client.send("y"))
            std::this_thread::sleep_for(milliseconds(10));
    });
    EXPECT_EQ(client.readReply().status, 408);
    client.endSending();
    trickle.get();
    EXPECT_EQ(handled, 0);
}

TEST_F(HttpServing, ABodyThatIsSlowerThanItsRateTimesOut)
{
    limits.bodySilence = milliseconds(300);
    start();
    RawClient client(port);
    client.send("POST /echo HTTP/1.1\r\nHost: x\r\nContent-Length: 900\r\n\r\n");
    auto trickle = std::async(std::launch::async, [&client] {
        while (client.send("y"))
            std::this_thread::sleep_for(milliseconds(50));
    });
    EXPECT_EQ(client.readReply().status, 408);
    client.endSending();
    trickle.get();
    EXPECT_EQ(handled, 0);
}

TEST_F(HttpServing, IdleConnectionsAreClosedSilently)
{
    limits.idle = milliseconds(100);
    start();
    RawClient fresh(port);
    RawClient used(port);
    used.send(get);
    EXPECT_EQ(used.readReply().status, 200);
    EXPECT_EQ(fresh.readAll(), "");
    EXPECT_EQ(used.readAll(), "");
}

TEST_F(HttpServing, TooLongBodiesGetAReplyThatTheClientSees)
{
    start();
    // The client sends all of it before it reads.
    const std::string large(8U * 1024U * 1024U, 'x');
    RawClient declared(port);
    EXPECT_TRUE(declared.send(post(large)));
    EXPECT_EQ(declared.readReply().status, 413);
    RawClient chunked(port);
    EXPECT_TRUE(chunked.send(
        "POST /echo HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n800000\r\n" + large +
        "\r\n0\r\n\r\n"));
    EXPECT_EQ(chunked.readReply().status, 413);
    EXPECT_EQ(handled, 0);
    RawClient fitting(port);
    fitting.send(post(std::string(1000, 'x')));
    EXPECT_EQ(fitting.readReply().status, 200);
    fitting.send(post(std::string(1001, 'x')));
    EXPECT_EQ(fitting.readReply().status, 413);
}

TEST_F(HttpServing, ContinueIsSaidBeforeABodyThatWillBeRead)
{
    start();
    RawClient client(port);
    client.send(
        "POST /echo HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n");
    EXPECT_EQ(client.readReply().status, 100);
    client.send("abc");
    EXPECT_EQ(client.readReply().body, "POST abc");
    RawClient large(port);
    large.send(
        "POST /echo HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: 5000\r\n\r\n");
    EXPECT_EQ(large.readReply().status, 413);
    RawClient other(port);
    other.send("POST /echo HTTP/1.1\r\nHost: x\r\nExpect: money\r\nContent-Length: 3\r\n\r\nabc");
    EXPECT_EQ(other.readReply().status, 417);
}

TEST_F(HttpServing, WhatAHandlerThrowsBecomesAnError)
{
    start();
    RawClient client(port);
    client.send("GET /throw HTTP/1.1\r\nHost: x\r\n\r\n" + std::string(get));
    const RawReply failed = client.readReply();
    EXPECT_EQ(failed.status, 500);
    EXPECT_EQ(failed.body, R"({"error":"internal error"})");
    EXPECT_EQ(client.readReply().status, 200);
}

TEST_F(HttpServing, RequestsBeyondTheQueueAreSentAway)
{
    threads = 1;
    queue = 1;
    start();
    const std::string wait = "GET /wait HTTP/1.1\r\nHost: x\r\n\r\n";
    RawClient running(port);
    running.send(wait);
    entered.get_future().wait();
    // One of these waits for the worker, the others are refused.
    std::vector<RawClient> others;
    for (int i = 0; i < 3; ++i)
        others.emplace_back(port).send(wait);
    std::vector<std::future<RawReply>> replies;
    replies.reserve(others.size());
    for (RawClient &client : others)
        replies.push_back(std::async(std::launch::async, [&client] { return client.readReply(); }));
    while (metrics.refusedForLoad < 2)
        std::this_thread::yield();
    RawClient probe(port);
    probe.send(
        "GET /immediate HTTP/1.1\r\nHost: x\r\n\r\nHEAD /immediate HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(probe.readReply().body, "at once");
    EXPECT_EQ(probe.readReply(false).status, 200);
    release.set_value();
    int refused = 0;
    for (auto &reply : replies) {
        const RawReply got = reply.get();
        refused += got.status == 503 ? 1 : 0;
        if (got.status == 503)
            EXPECT_EQ(got.field("retry-after"), "1");
        else
            EXPECT_EQ(got.body, "waited");
    }
    EXPECT_EQ(refused, 2);
    EXPECT_EQ(running.readReply().body, "waited");
}

TEST_F(HttpServing, AHalfClosedClientStillGetsAWholeReply)
{
    start();
    RawClient client(port);
    client.send(post("last words"));
    client.endSending();
    EXPECT_EQ(client.readReply().body, "POST last words");
    EXPECT_EQ(client.readAll(), "");
    // Half a request is none.
    RawClient half(port);
    half.send("POST /echo HTTP/1.1\r\nHost: x\r\nContent-Length: 10\r\n\r\nabc");
    half.endSending();
    EXPECT_EQ(half.readAll(), "");
    EXPECT_EQ(handled, 1);
}

TEST_F(HttpServing, AStreamLearnsThatItsClientHasLeft)
{
    start();
    RawClient client(port);
    client.send("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    onStream([](StreamOutput &) {});
    // Nothing was written yet, and nothing ever is.
    client.close();
    EXPECT_EQ(watch->gone.get_future().wait_for(std::chrono::seconds(20)),
              std::future_status::ready);
}

TEST_F(HttpServing, AStreamLearnsThatItsClientTakesNothingMore)
{
    limits.writeSilence = milliseconds(200);
    start();
    RawClient client(port, 4096);
    client.send("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    onStream([](StreamOutput &output) {
        output.begin(Response());
        // More than the system takes for a client that does not read.
        for (int i = 0; i < 1024; ++i)
            output.write(std::string(16384, 'x'));
        EXPECT_GT(output.buffered(), 0U);
    });
    EXPECT_EQ(watch->gone.get_future().wait_for(std::chrono::seconds(20)),
              std::future_status::ready);
}

TEST_F(HttpServing, AStreamIsToldWhenItsBufferIsEmptyAgain)
{
    start();
    RawClient client(port);
    client.send("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    std::size_t written = 0;
    onStream([&written](StreamOutput &output) {
        output.begin(Response());
        do {
            output.write(std::string(16384, 'x'));
            written += 16384;
        } while (output.buffered() == 0);
    });
    auto reply = std::async(std::launch::async, [&client] { return client.readReply(); });
    while (watch->drains == 0)
        std::this_thread::yield();
    onStream([](StreamOutput &output) {
        EXPECT_EQ(output.buffered(), 0U);
        output.finish();
    });
    EXPECT_EQ(reply.get().body.size(), written);
}

TEST_F(HttpServing, AStreamMayReplyWithAnErrorInstead)
{
    start();
    RawClient client(port);
    client.send("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n" + std::string(get));
    onStream([](StreamOutput &output) {
        Response response;
        response.status = 502;
        response.setBody("no", "text/plain");
        output.reply(std::move(response));
    });
    const RawReply reply = client.readReply();
    EXPECT_EQ(reply.status, 502);
    EXPECT_EQ(reply.body, "no");
    EXPECT_EQ(client.readReply().body, "GET ");
}

TEST_F(HttpServing, AnOldClientReadsAStreamUntilItsEnd)
{
    start();
    RawClient client(port);
    client.send("GET /stream HTTP/1.0\r\n\r\n");
    onStream([](StreamOutput &output) {
        output.begin(Response());
        output.write("text");
        output.finish();
    });
    const std::string all = client.readAll();
    EXPECT_EQ(all.substr(all.find("\r\n\r\n") + 4), "text");
    EXPECT_EQ(all.find("chunked"), std::string::npos);
}

TEST_F(HttpServing, ConnectionsBeyondTheLimitWait)
{
    limits.connections = 2;
    start();
    auto first = std::make_unique<RawClient>(port);
    RawClient second(port);
    first->send(get);
    second.send(get);
    EXPECT_EQ(first->readReply().status, 200);
    EXPECT_EQ(second.readReply().status, 200);
    EXPECT_EQ(metrics.connections, 2);
    RawClient third(port);
    third.send(get);
    first.reset();
    EXPECT_EQ(third.readReply().status, 200);
    EXPECT_LE(metrics.connections, 2);
}

TEST_F(HttpServing, OneAddressHasOnlySoManyConnections)
{
    limits.connectionsPerPeer = 2;
    start();
    auto first = std::make_unique<RawClient>(port);
    RawClient second(port);
    for (RawClient *client : {first.get(), &second}) {
        client->send(get);
        EXPECT_EQ(client->readReply().status, 200);
    }
    EXPECT_EQ(RawClient(port).readAll(), "");
    first.reset();
    // The place is free once the server has noticed.
    int status = 0;
    for (int i = 0; i < 1000 && status == 0; ++i) {
        RawClient next(port);
        next.send(get);
        status = next.readReply().status;
    }
    EXPECT_EQ(status, 200);
    second.send(get);
    EXPECT_EQ(second.readReply().status, 200);
}

TEST_F(HttpServing, ProxiesHaveAsManyConnectionsAsTheyNeed)
{
    limits.connectionsPerPeer = 2;
    limits.proxies.add("127.0.0.0/8");
    start();
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(std::make_unique<RawClient>(port));
        clients.back()->send(get);
        EXPECT_EQ(clients.back()->readReply().status, 200);
    }
}

TEST_F(HttpServing, AStopClosesIdleConnectionsAndLetsStreamsGoOn)
{
    start();
    RawClient idle(port);
    idle.send(get);
    EXPECT_EQ(idle.readReply().status, 200);
    RawClient streaming(port);
    streaming.send("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    onStream([](StreamOutput &output) {
        output.begin(Response());
        output.write("half");
    });
    server().beginStop();
    EXPECT_EQ(idle.readAll(), "");
    RawClient late(port);
    EXPECT_TRUE(!late.isConnected() || !late.send(get) || late.readAll().empty());
    EXPECT_EQ(watch->stops, 0);
    onStream([](StreamOutput &output) { output.write(" whole"); });
    server().endStreams();
    EXPECT_EQ(watch->stops, 1);
    EXPECT_EQ(streaming.readReply().body, "half whole");
    EXPECT_EQ(streaming.readAll(), "");
}

TEST_F(HttpServing, AStreamThatBeginsAfterTheEndIsTold)
{
    router.get("/late", [this](const Request &, Response &response) {
        entered.set_value();
        released.wait();
        response.stream = std::make_shared<TestStream>(watch);
    });
    start();
    RawClient client(port);
    client.send("GET /late HTTP/1.1\r\nHost: x\r\n\r\n");
    entered.get_future().wait();
    server().beginStop();
    server().endStreams();
    release.set_value();
    client.readAll();
    EXPECT_EQ(watch->stops, 1);
}

} // namespace
} // namespace quellora::server
