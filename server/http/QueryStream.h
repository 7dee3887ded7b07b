#pragma once

#include "http/AnswerAccounting.h"
#include "http/ResponseStream.h"
#include "http/Services.h"
#include "model/Answer.h"

#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace quellora::server {

/// One accepted query: decides between an HTTP error and a stream, writes the events of the
/// stream, and counts the tokens exactly once, however it ends. Text is sent only within what is
/// reserved for it; the model waits while more is being reserved. Made on a worker, used on the
/// loop of the connection afterwards. The model is cancelled as soon as nobody reads its answer.
class QueryStream : public ResponseStream,
                    private AnswerSink,
                    public std::enable_shared_from_this<QueryStream>
{
public:
    /// @p requestId names the query in the log.
    QueryStream(Services &services, AnswerAccounting accounting, bool usedFallback,
                AnswerStart answer, RunningStreams::Place place, std::string requestId);
    ~QueryStream() override;
    QueryStream(const QueryStream &) = delete;
    QueryStream &operator=(const QueryStream &) = delete;

    /// A function that ends @p stream early, with an event that says why.
    static RunningStreams::Revoke revoker(const std::shared_ptr<QueryStream> &stream);

    void start(StreamOutput &output, EventLoop &loop) override;
    void drained() override;
    void clientGone() override;
    void serverStops() override;

private:
    using Settlement = AnswerAccounting::Settlement;

    void attemptFails(const FailedAttempt &attempt) override;
    void answeredBy(const std::string &model) override;
    void answerGrows(std::string_view text) override;
    void answerEnds(const AnswerOutcome &outcome) override;
    void open();
    void write(const std::function<void(const class SseWriter &writer)> &event);
    /// Sends text that is covered.
    void deliver(std::string_view text);
    /// Sends what is covered of the held text.
    void deliverHeld();
    /// Pauses the model while text waits for the client or for being covered.
    void adjustFlow();
    void watchSilence();
    /// Reserves more, unless that is under way.
    void cover();
    void onCovered(const std::optional<AnswerRefusal> &refusal);
    void onStoreFailure();
    void endRevoked();
    /// Ends the stream with an error event, or with @p instead when nothing was sent.
    void endEarly(const std::string &message, std::optional<Response> instead = std::nullopt);
    static Response replyTo(const AnswerOutcome &outcome);
    /// Lets go of the model. What it still says is ignored.
    void dropAnswer();
    /// Counts the answer, then calls @p then unless the client has gone.
    void settle(const std::optional<TokenCount> &tokens,
                std::function<void(const Settlement &)> then);
    /// Like settle() for an answer that ends early: one without a text costs nothing.
    void close(const std::optional<TokenCount> &tokens, const std::function<void()> &then);
    /// Runs @p work on a worker and @p then on the loop afterwards.
    void onWorker(std::function<void()> work, std::function<void()> then);
    void reply(Response response);
    void finish();
    void log(const std::string &text) const;

    Services &m_services;
    RunningStreams::Place m_place;
    AnswerAccounting m_accounting;
    bool m_usedFallback;
    AnswerStart m_start;
    std::string m_requestId;
    std::chrono::steady_clock::time_point m_begin;
    std::chrono::steady_clock::time_point m_lastWrite;
    StreamOutput *m_output = nullptr;
    std::unique_ptr<boost::asio::steady_timer> m_timer;
    std::unique_ptr<RunningAnswer> m_answer;
    std::size_t m_sentBytes = 0;
    /// Text that is not covered yet.
    std::string m_held;
    /// How the model ended while text was held.
    std::optional<AnswerOutcome> m_heldEnd;
    int m_storeFailures = 0;
    bool m_hasText = false;
    bool m_isCovering = false;
    bool m_isAccounted = false;
    bool m_isOpen = false;
    bool m_isOver = false;
    bool m_isFull = false;
    bool m_isPaused = false;
    /// Guards what revoker()'s function uses on any thread.
    std::mutex m_mutex;
    EventLoop *m_loop = nullptr;
    std::optional<Revocation> m_revocation;
};

} // namespace quellora::server
