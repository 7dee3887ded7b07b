#pragma once

#include "base/Stop.h"
#include "model/Answer.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>

namespace quellora::server {

/// Runs a model on its own thread and queues the pieces of its answer for the response thread.
/// The destructor cancels the model and waits until it has ended.
class AnswerStream
{
public:
    /// A piece of text or, as the last item, how the answer ended.
    using Item = std::variant<std::string, AnswerOutcome>;

    AnswerStream(AnswerFunction answer, ModelRequest request);
    ~AnswerStream();
    AnswerStream(const AnswerStream &) = delete;
    AnswerStream &operator=(const AnswerStream &) = delete;

    /// Waits for an item without removing it; false when none arrives within @p timeout.
    bool waitFor(std::chrono::milliseconds timeout);
    /// The outcome, if it is the next item.
    std::optional<AnswerOutcome> endedBeforeText();
    /// Removes and returns the next item; nothing when none arrives within @p timeout.
    std::optional<Item> next(std::chrono::milliseconds timeout);
    /// Asks the model to stop. Queued items remain.
    void cancel();

private:
    void run(const StopToken &stop);
    void push(Item item);

    AnswerFunction m_answer;
    ModelRequest m_request;
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::deque<Item> m_items;
    StopSource m_stop;
    std::thread m_worker;
};

} // namespace quellora::server
