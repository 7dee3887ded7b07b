#include "model/UpstreamTransfer.h"

#include "base/JsonAccess.h"
#include "base/Text.h"
#include "model/EventLoop.h"
#include "model/EventStreamReader.h"
#include "model/ProviderWords.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <atomic>
#include <utility>

namespace quellora::server {
namespace {

constexpr std::int64_t longestRetrySeconds = 3600;
/// How much of an error's body is read for its message.
constexpr std::size_t errorBytes = 16U * 1024U;
/// How long the end of a reply is awaited after its last event.
constexpr std::chrono::milliseconds endGrace(100);

/// Retry-After in seconds. The date form and unreadable values count as absent: 0.
std::chrono::seconds retryAfter(const std::string &value)
{
    const auto seconds = parseCount(value);
    return std::chrono::seconds(seconds ? std::clamp<std::int64_t>(*seconds, 1, longestRetrySeconds)
                                        : 0);
}

/// @p status is 0 for an error inside a stream.
AnswerOutcome outcomeOfRefusal(ProviderFault fault, int status, std::string_view body)
{
    AnswerOutcome outcome = AnswerOutcome::failed(
        handlingOf(fault).reason + (status > 0 ? " (HTTP " + std::to_string(status) + ")"
                                               : std::string(" (in its stream)")),
        {UpstreamProblem::Kind::Refused, status, fault, providerWords(body)});
    if (fault == ProviderFault::RateLimited)
        outcome.kind = AnswerOutcome::Kind::RateLimited;
    return outcome;
}

UpstreamProblem problemOf(const TransferEnd &end)
{
    using Kind = UpstreamProblem::Kind;
    switch (end.kind) {
    case TransferEnd::Kind::Address:
        return {Kind::Address};
    case TransferEnd::Kind::Unreachable:
        return {Kind::Unreachable};
    case TransferEnd::Kind::Certificate:
        return {Kind::Certificate};
    case TransferEnd::Kind::Silent:
        return {Kind::Silent};
    default:
        return {Kind::Interrupted};
    }
}

std::string joined(std::string baseUrl, const std::string &path)
{
    while (!baseUrl.empty() && baseUrl.back() == '/')
        baseUrl.pop_back();
    return baseUrl + path;
}

/// The provider's answer to one attempt.
class StreamedAnswer : public RunningAnswer, private TransferReceiver
{
public:
    StreamedAnswer(AnswerSink &sink, std::unique_ptr<AnswerEvents> events, EventLoop &loop,
                   TransferRequest request)
        : m_sink(&sink)
        , m_events(std::move(events))
        , m_reader([this](std::string_view data) { return takeEvent(data); })
        , m_grace(loop.context())
        , m_transfer(loop.transfers().start(std::move(request), *this))
    {}

    void pause() override
    {
        if (m_transfer)
            m_transfer->pause();
    }
    void resume() override
    {
        if (m_transfer)
            m_transfer->resume();
    }

private:
    void replyBegins(int status, const Headers &headers) override
    {
        m_status = status;
        const auto field = std::find_if(headers.begin(), headers.end(), [](const auto &header) {
            return header.first == "retry-after";
        });
        m_retryAfter = retryAfter(field == headers.end() ? "" : field->second);
    }

    bool replyGrows(std::string_view bytes) override
    {
        if (m_status != 200) {
            m_errorBody.append(bytes.substr(0, errorBytes - m_errorBody.size()));
            return m_errorBody.size() < errorBytes;
        }
        // What follows the last event is of no use, but a reply read to its end leaves a
        // connection for the next question.
        if (m_step == StreamStep::Finished || m_reader.feed(bytes))
            return true;
        m_isTooLong = m_step == StreamStep::Continue;
        if (m_step == StreamStep::Finished)
            awaitEnd();
        return m_step == StreamStep::Finished;
    }

    void transferEnds(const TransferEnd &end) override
    {
        if (end.kind == TransferEnd::Kind::Complete && m_status == 200 &&
            m_step == StreamStep::Continue)
            m_reader.finish();
        AnswerOutcome outcome = outcomeOf(end);
        outcome.tokens = m_events->tokens();
        const std::string_view words = endingWords(m_events->ending());
        if (outcome.kind == AnswerOutcome::Kind::Complete && !words.empty())
            m_sink->answerGrows(words);
        // This object may be destroyed in the call.
        m_sink->answerEnds(outcome);
    }

    bool takeEvent(std::string_view data)
    {
        m_step = m_events->read(data, [this](std::string_view text) { m_sink->answerGrows(text); });
        if (m_step == StreamStep::Broken)
            m_brokenEvent = data;
        return m_step == StreamStep::Continue;
    }

    void awaitEnd()
    {
        m_grace.expires_after(endGrace);
        m_grace.async_wait([this, alive = std::weak_ptr(m_alive)](const auto &error) {
            if (error || alive.expired())
                return;
            m_transfer.reset();
            transferEnds({TransferEnd::Kind::Complete});
        });
    }

    AnswerOutcome outcomeOf(const TransferEnd &end) const
    {
        using Kind = UpstreamProblem::Kind;
        AnswerOutcome outcome;
        if (m_step == StreamStep::Finished) {
            outcome.kind = AnswerOutcome::Kind::Complete;
        } else if (m_status > 0 && m_status != 200) {
            outcome =
                outcomeOfRefusal(m_events->faultOf(m_status, m_errorBody), m_status, m_errorBody);
            outcome.retryAfter = m_retryAfter;
        } else if (m_step == StreamStep::Broken) {
            if (parsedObject(m_brokenEvent))
                outcome = outcomeOfRefusal(m_events->faultOf(0, m_brokenEvent), 0, m_brokenEvent);
            else
                outcome = AnswerOutcome::failed("the provider sent an event that cannot be read",
                                                {Kind::Malformed});
        } else if (m_isTooLong) {
            outcome.reason = "the provider sent an event that is too long";
            outcome.problem = {Kind::TooLong};
        } else if (end.kind != TransferEnd::Kind::Complete) {
            outcome.reason = end.reason;
            outcome.problem = problemOf(end);
        } else {
            outcome.reason = "the provider's stream ended early";
            outcome.problem = {Kind::Malformed};
        }
        if (m_events->isWhole())
            outcome.kind = AnswerOutcome::Kind::Complete;
        return outcome;
    }

    AnswerSink *m_sink;
    std::unique_ptr<AnswerEvents> m_events;
    EventStreamReader m_reader;
    StreamStep m_step = StreamStep::Continue;
    std::string m_brokenEvent;
    std::string m_errorBody;
    /// 0 before the reply has begun.
    int m_status = 0;
    std::chrono::seconds m_retryAfter{0};
    bool m_isTooLong = false;
    boost::asio::steady_timer m_grace;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>();
    std::unique_ptr<Transfer> m_transfer;
};

/// Collects a small document for another thread.
class Document : public TransferReceiver
{
public:
    Document(std::size_t limit, const StopToken &stop) : m_limit(limit), m_stop(stop) {}

    void replyBegins(int code, const Headers &) override { status = code; }
    bool replyGrows(std::string_view bytes) override
    {
        isTooLong = body.size() + bytes.size() > m_limit;
        if (!isTooLong)
            body += bytes;
        return !isTooLong;
    }
    void transferEnds(const TransferEnd &how) override
    {
        end = how;
        m_isOver = true;
        m_stop.wake();
    }
    /// Waits until the transfer has ended or the stop; then nothing changes any more once the
    /// transfer is destroyed.
    void wait() const
    {
        m_stop.waitForStop([this] { return m_isOver.load(); });
    }

    int status = 0;
    std::string body;
    bool isTooLong = false;
    TransferEnd end;

private:
    std::size_t m_limit;
    const StopToken &m_stop;
    std::atomic<bool> m_isOver{false};
};

} // namespace

tl::expected<std::string, UpstreamProblem>
getDocument(EventLoop &loop, const std::string &baseUrl, const std::string &path,
            const Headers &headers, const DocumentLimits &limits, const StopToken &stop)
{
    using Kind = UpstreamProblem::Kind;
    TransferRequest request;
    request.url = joined(baseUrl, path);
    request.headers = headers;
    request.headers.emplace_back("Accept", "application/json");
    request.connect = limits.connect;
    request.tls = limits.connect;
    request.firstByte = limits.total;
    request.silence = limits.total;
    const StopToken limited = stop.before(std::chrono::steady_clock::now() + limits.total);
    Document document(limits.bytes, limited);
    std::unique_ptr<Transfer> transfer;
    loop.postAndWait([&] { transfer = loop.transfers().start(std::move(request), document); });
    document.wait();
    loop.postAndWait([&] { transfer.reset(); });
    if (document.status > 0 && document.status != 200)
        return tl::make_unexpected(UpstreamProblem{Kind::Refused, document.status,
                                                   faultOfStatus(document.status),
                                                   providerWords(document.body)});
    if (document.isTooLong)
        return tl::make_unexpected(UpstreamProblem{Kind::TooLong});
    if (limited.expired())
        return tl::make_unexpected(UpstreamProblem{Kind::Silent});
    if (document.end.kind != TransferEnd::Kind::Complete)
        return tl::make_unexpected(problemOf(document.end));
    return std::move(document.body);
}

AnswerStart streamedAnswer(ProviderRequest request,
                           std::function<std::unique_ptr<AnswerEvents>()> makeEvents)
{
    TransferRequest transfer;
    transfer.url = joined(request.baseUrl, request.path);
    transfer.headers = std::move(request.headers);
    transfer.headers.emplace_back("Content-Type", "application/json");
    transfer.headers.emplace_back("Accept", "text/event-stream");
    transfer.body = std::make_shared<const std::string>(std::move(request.body));
    transfer.connect = request.timing.connect;
    transfer.tls = request.timing.tls;
    transfer.firstByte = request.timing.firstByte;
    transfer.silence = request.timing.stall;
    return
        [transfer, makeEvents = std::move(makeEvents)](AnswerSink &sink, const AnswerPlace &place) {
            return std::make_unique<StreamedAnswer>(sink, makeEvents(), place.loop, transfer);
        };
}

} // namespace quellora::server
