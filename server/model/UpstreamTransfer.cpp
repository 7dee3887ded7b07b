#include "model/UpstreamTransfer.h"

#include "base/Text.h"
#include "model/EventStreamReader.h"

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

AnswerOutcome outcomeOfStatus(const httplib::Response &response)
{
    if (response.status == 429) {
        AnswerOutcome outcome;
        outcome.kind = AnswerOutcome::Kind::RateLimited;
        outcome.retryAfter = retryAfter(response);
        outcome.reason = "the provider limits the rate";
        return outcome;
    }
    if (response.status == 401 || response.status == 403)
        return AnswerOutcome::failed("the provider refused the API key (HTTP " +
                                     std::to_string(response.status) + ")");
    return AnswerOutcome::failed("the provider answered HTTP " + std::to_string(response.status));
}

} // namespace

AnswerOutcome postForEvents(std::string baseUrl, const std::string &path, const Headers &headers,
                            const std::string &body, const TimingSettings &timing,
                            const EventHandler &onEvent, const StopToken &stop)
{
    while (!baseUrl.empty() && baseUrl.back() == '/')
        baseUrl.pop_back();
    const std::size_t prefix = std::min(baseUrl.find('/', baseUrl.find("://") + 3), baseUrl.size());
    httplib::Client client(baseUrl.substr(0, prefix));
    if (!client.is_valid())
        return AnswerOutcome::failed("the provider's address cannot be used");
    client.set_connection_timeout(timing.connect);
    client.set_read_timeout(timing.stall);
    client.set_write_timeout(timing.stall);
    client.set_keep_alive(false);
    client.set_tcp_nodelay(true);

    StreamStep step = StreamStep::Continue;
    EventStreamReader reader([&](std::string_view data) {
        step = onEvent(data);
        return step == StreamStep::Continue;
    });
    bool tooLong = false;
    int status = 0;

    httplib::Request request;
    request.method = "POST";
    request.path = baseUrl.substr(prefix) + path;
    request.body = body;
    for (const auto &[name, value] : headers)
        request.headers.emplace(name, value);
    request.headers.emplace("Content-Type", "application/json");
    request.headers.emplace("Accept", "text/event-stream");
    request.response_handler = [&](const httplib::Response &response) {
        status = response.status;
        return !stop.stopRequested();
    };
    request.content_receiver = [&](const char *data, std::size_t length, auto, auto) {
        if (stop.stopRequested())
            return false;
        if (status != 200)
            return true;
        if (reader.feed(std::string_view(data, length)))
            return true;
        tooLong = step == StreamStep::Continue;
        return false;
    };

    const httplib::Result result = [&] {
        const Canceller canceller(client, stop);
        return client.send(request);
    }();
    if (result && status == 200 && step == StreamStep::Continue)
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
    } else if (status != 0 && status != 200 && result) {
        outcome = outcomeOfStatus(*result);
    } else if (step == StreamStep::Broken) {
        outcome.reason = "the provider reported an error in its stream";
    } else if (tooLong) {
        outcome.reason = "the provider sent an event that is too long";
    } else if (!result) {
        outcome.reason = "the transfer failed: " + httplib::to_string(result.error());
    } else {
        outcome.reason = "the provider's stream ended early";
    }
    return outcome;
}

} // namespace quellora::server
