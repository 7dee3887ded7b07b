#include "model/UpstreamTransfer.h"

#include "base/JsonAccess.h"
#include "base/Text.h"
#include "model/EventStreamReader.h"
#include "model/ProviderWords.h"

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

namespace quellora::server {
namespace {

constexpr std::int64_t defaultRetrySeconds = 30;
constexpr std::int64_t longestRetrySeconds = 3600;
/// How much of an error's body is read for its message.
constexpr std::size_t errorBytes = 16U * 1024U;

/// Retry-After in seconds. The date form and unreadable values count as absent.
std::chrono::seconds retryAfter(const httplib::Response &response)
{
    const auto seconds = parseCount(trimmed(response.get_header_value("Retry-After")));
    return std::chrono::seconds(
        std::clamp<std::int64_t>(seconds.value_or(defaultRetrySeconds), 1, longestRetrySeconds));
}

/// Closes the client's socket once a stop is requested, which ends a read that waits for the
/// provider. Repeats this, because the socket may be opened after the stop request.
class Canceller
{
public:
    Canceller(httplib::Client &client, StopToken stop)
        : m_stop(std::move(stop)), m_thread([this, &client] { run(client); })
    {}
    ~Canceller()
    {
        m_finished = true;
        m_stop.wake();
        m_thread.join();
    }
    Canceller(const Canceller &) = delete;
    Canceller &operator=(const Canceller &) = delete;

private:
    void run(httplib::Client &client)
    {
        const auto finished = [this] { return m_finished.load(); };
        m_stop.waitForStop(finished);
        while (!m_finished) {
            client.stop();
            m_stop.waitFor(std::chrono::milliseconds(50), finished);
        }
    }

    StopToken m_stop;
    std::atomic<bool> m_finished = false;
    std::thread m_thread;
};

AnswerOutcome outcomeOfStatus(const httplib::Response &response, const std::string &body)
{
    using Kind = UpstreamProblem::Kind;
    const UpstreamProblem problem{Kind::Refused, response.status, providerWords(body)};
    if (response.status == 429) {
        AnswerOutcome outcome;
        outcome.kind = AnswerOutcome::Kind::RateLimited;
        outcome.retryAfter = retryAfter(response);
        outcome.reason = "the provider limits the rate";
        outcome.problem = problem;
        return outcome;
    }
    if (response.status == 401 || response.status == 403)
        return AnswerOutcome::failed("the provider refused the API key (HTTP " +
                                         std::to_string(response.status) + ")",
                                     problem);
    return AnswerOutcome::failed("the provider answered HTTP " + std::to_string(response.status),
                                 problem);
}

/// What a failed transfer of at most @p silence without a byte means.
UpstreamProblem problemOf(httplib::Error error, std::chrono::steady_clock::duration lastSilence,
                          std::chrono::milliseconds silence)
{
    using Kind = UpstreamProblem::Kind;
    switch (error) {
    case httplib::Error::Connection:
    case httplib::Error::SSLConnection:
        return {Kind::Unreachable};
    case httplib::Error::SSLLoadingCerts:
    case httplib::Error::SSLServerVerification:
        return {Kind::Certificate};
    case httplib::Error::ConnectionTimeout:
        return {Kind::Silent};
    default:
        return {lastSilence >= silence ? Kind::Silent : Kind::Interrupted};
    }
}

/// A base address split for the HTTP library.
struct Upstream
{
    std::string server;
    std::string prefix;

    explicit Upstream(std::string baseUrl)
    {
        while (!baseUrl.empty() && baseUrl.back() == '/')
            baseUrl.pop_back();
        const std::size_t path =
            std::min(baseUrl.find('/', baseUrl.find("://") + 3), baseUrl.size());
        server = baseUrl.substr(0, path);
        prefix = baseUrl.substr(path);
    }
    /// The library throws for other schemes.
    bool isHttp() const
    {
        return server.rfind("http://", 0) == 0 || server.rfind("https://", 0) == 0;
    }
};

void prepare(httplib::Client &client, std::chrono::milliseconds connect,
             std::chrono::milliseconds silence)
{
    client.set_connection_timeout(connect);
    client.set_read_timeout(silence);
    client.set_write_timeout(silence);
    client.set_keep_alive(false);
    client.set_tcp_nodelay(true);
}

} // namespace

tl::expected<std::string, UpstreamProblem>
getDocument(const std::string &baseUrl, const std::string &path, const Headers &headers,
            const DocumentLimits &limits, const StopToken &stop)
{
    using Kind = UpstreamProblem::Kind;
    const Upstream upstream(baseUrl);
    if (!upstream.isHttp())
        return tl::make_unexpected(UpstreamProblem{Kind::Address});
    httplib::Client client(upstream.server);
    if (!client.is_valid())
        return tl::make_unexpected(UpstreamProblem{Kind::Address});
    prepare(client, limits.connect, limits.total);

    httplib::Request request;
    request.method = "GET";
    request.path = upstream.prefix + path;
    for (const auto &[name, value] : headers)
        request.headers.emplace(name, value);
    request.headers.emplace("Accept", "application/json");
    std::string body;
    int status = 0;
    bool isTooLong = false;
    request.response_handler = [&](const httplib::Response &response) {
        status = response.status;
        return true;
    };
    request.content_receiver = [&](const char *data, std::size_t length, auto, auto) {
        isTooLong = body.size() + length > limits.bytes;
        if (!isTooLong)
            body.append(data, length);
        return !isTooLong;
    };
    const StopToken limited = stop.before(std::chrono::steady_clock::now() + limits.total);
    const httplib::Result result = [&] {
        const Canceller canceller(client, limited);
        return client.send(request);
    }();
    if (status > 0 && status != 200)
        return tl::make_unexpected(UpstreamProblem{Kind::Refused, status, providerWords(body)});
    if (isTooLong)
        return tl::make_unexpected(UpstreamProblem{Kind::TooLong});
    if (limited.expired())
        return tl::make_unexpected(UpstreamProblem{Kind::Silent});
    if (!result)
        return tl::make_unexpected(problemOf(result.error(), {}, limits.total));
    return body;
}

AnswerOutcome postForEvents(const std::string &baseUrl, const std::string &path,
                            const Headers &headers, const std::string &body,
                            const TimingSettings &timing, const EventHandler &onEvent,
                            const StopToken &stop)
{
    using Kind = UpstreamProblem::Kind;
    const AnswerOutcome unusable =
        AnswerOutcome::failed("the provider's address cannot be used", {Kind::Address});
    const Upstream upstream(baseUrl);
    if (!upstream.isHttp())
        return unusable;
    httplib::Client client(upstream.server);
    if (!client.is_valid())
        return unusable;
    prepare(client, timing.connect, timing.stall);

    StreamStep step = StreamStep::Continue;
    std::string brokenEvent;
    EventStreamReader reader([&](std::string_view data) {
        step = onEvent(data);
        if (step == StreamStep::Broken || step == StreamStep::RateLimited)
            brokenEvent = data;
        return step == StreamStep::Continue;
    });
    bool tooLong = false;
    // Status and headers as soon as they have arrived; status -1 before.
    httplib::Response response;
    std::string errorBody;
    auto lastByte = std::chrono::steady_clock::now();

    httplib::Request request;
    request.method = "POST";
    request.path = upstream.prefix + path;
    request.body = body;
    for (const auto &[name, value] : headers)
        request.headers.emplace(name, value);
    request.headers.emplace("Content-Type", "application/json");
    request.headers.emplace("Accept", "text/event-stream");
    request.response_handler = [&](const httplib::Response &head) {
        response.headers = head.headers;
        response.status = head.status;
        lastByte = std::chrono::steady_clock::now();
        return !stop.stopRequested();
    };
    request.content_receiver = [&](const char *data, std::size_t length, auto, auto) {
        if (stop.stopRequested())
            return false;
        lastByte = std::chrono::steady_clock::now();
        if (response.status != 200) {
            errorBody.append(data, std::min(length, errorBytes - errorBody.size()));
            return errorBody.size() < errorBytes;
        }
        if (reader.feed(std::string_view(data, length)))
            return true;
        tooLong = step == StreamStep::Continue;
        return false;
    };

    const httplib::Result result = [&] {
        const Canceller canceller(client, stop);
        return client.send(request);
    }();
    if (result && response.status == 200 && step == StreamStep::Continue)
        reader.finish();

    AnswerOutcome outcome;
    if (step == StreamStep::Finished) {
        outcome.kind = AnswerOutcome::Kind::Complete;
    } else if (stop.stopRequested() || step == StreamStep::Stopped) {
        outcome.kind = AnswerOutcome::Kind::Cancelled;
    } else if (step == StreamStep::RateLimited) {
        outcome.kind = AnswerOutcome::Kind::RateLimited;
        outcome.retryAfter = std::chrono::seconds(defaultRetrySeconds);
        outcome.reason = "the provider limits the rate";
        outcome.problem = {Kind::Refused, 429, providerWords(brokenEvent)};
    } else if (response.status > 0 && response.status != 200) {
        outcome = outcomeOfStatus(response, errorBody);
    } else if (step == StreamStep::Broken) {
        outcome.reason = "the provider reported an error in its stream";
        outcome.problem = parsedObject(brokenEvent)
                              ? UpstreamProblem{Kind::Refused, 0, providerWords(brokenEvent)}
                              : UpstreamProblem{Kind::Malformed};
    } else if (tooLong) {
        outcome.reason = "the provider sent an event that is too long";
        outcome.problem = {Kind::TooLong};
    } else if (!result) {
        outcome.reason = "the transfer failed: " + httplib::to_string(result.error());
        outcome.problem =
            problemOf(result.error(), std::chrono::steady_clock::now() - lastByte, timing.stall);
    } else {
        outcome.reason = "the provider's stream ended early";
        outcome.problem = {Kind::Malformed};
    }
    return outcome;
}

} // namespace quellora::server
