#pragma once

#include "http/AnswerStream.h"
#include "http/Services.h"

#include <chrono>
#include <string>

namespace quellora::server {

/// One accepted query: decides between an HTTP error and a stream, writes the events of the
/// stream, and counts the tokens exactly once, however it ends.
class QueryStream
{
public:
    QueryStream(Services &services, Account account, ChosenModel model, ModelRequest request,
                StreamSlots::Slot slot);
    ~QueryStream();
    QueryStream(const QueryStream &) = delete;
    QueryStream &operator=(const QueryStream &) = delete;

    /// Waits for the model's first text or failure, at most for the keep-alive time. True when the
    /// answer is to be streamed; false after writing an error reply.
    bool open(Response &response);
    /// Writes the next item or a keep-alive. False when the client has disconnected. Between calls
    /// the library detects silently closed connections and destroys this object, which cancels the
    /// model.
    bool pump(BodySink &sink);

private:
    bool writeText(const class SseWriter &writer, const std::string &text, BodySink &sink);
    bool end(const class SseWriter &writer, const AnswerOutcome &outcome, BodySink &sink);
    TokenCount estimated() const;
    void countFailure(const AnswerOutcome &outcome);
    void settle(const std::optional<TokenCount> &tokens);

    Services &m_services;
    StreamSlots::Slot m_slot;
    Account m_account;
    ChosenModel m_model;
    std::size_t m_promptBytes;
    std::int64_t m_usedBefore;
    std::size_t m_answerBytes = 0;
    bool m_settled = false;
    const std::chrono::steady_clock::time_point m_begun;
    std::chrono::steady_clock::time_point m_lastWrite;
    AnswerStream m_answer;
};

} // namespace quellora::server
