#pragma once

#include "http/AnswerAccounting.h"
#include "http/ResponseStream.h"
#include "http/Services.h"
#include "model/Answer.h"

#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quellora::server {

/// One accepted query: decides between an HTTP error and a stream, writes the events of the
/// stream, and counts the tokens exactly once, however it ends. Made on a worker, used on the loop
/// of the connection afterwards. The model is cancelled as soon as nobody reads its answer.
class QueryStream : public ResponseStream,
                    private AnswerSink,
                    public std::enable_shared_from_this<QueryStream>
{
public:
    /// @p requestId names the query in the log.
    QueryStream(Services &services, AnswerAccounting accounting, bool usedFallback,
                AnswerStart answer, StreamSlots::Slot slot, std::string requestId);
    ~QueryStream() override;
    QueryStream(const QueryStream &) = delete;
    QueryStream &operator=(const QueryStream &) = delete;

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
    void watchSilence();
    void replyToFailure(const AnswerOutcome &outcome);
    /// Lets go of the model. What it still says is ignored.
    void dropAnswer();
    /// Counts the answer on a worker and calls @p then on the loop, with nothing when the store
    /// fails.
    void settle(const std::optional<TokenCount> &tokens,
                std::function<void(const std::optional<Settlement> &)> then);
    void finish();
    void log(const std::string &text) const;

    Services &m_services;
    StreamSlots::Slot m_slot;
    AnswerAccounting m_accounting;
    bool m_usedFallback;
    AnswerStart m_start;
    std::string m_requestId;
    std::chrono::steady_clock::time_point m_begin;
    std::chrono::steady_clock::time_point m_lastWrite;
    StreamOutput *m_output = nullptr;
    EventLoop *m_loop = nullptr;
    std::unique_ptr<boost::asio::steady_timer> m_timer;
    std::unique_ptr<RunningAnswer> m_answer;
    std::size_t m_answerBytes = 0;
    bool m_isOpen = false;
    bool m_isOver = false;
    bool m_isPaused = false;
};

} // namespace quellora::server
