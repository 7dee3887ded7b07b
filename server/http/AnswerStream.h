#pragma once

#include "base/Stop.h"
#include "model/ModelClient.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>

namespace quellora::server {

/// One answer in the making: a model client working on its own thread, and a queue from which
/// the response thread takes the pieces. Destroying it cancels the work and waits for its end.
class AnswerStream
{
public:
    /// A piece of text, or how the answer ended (always the last item, once).
    using Item = std::variant<std::string, AnswerOutcome>;

    AnswerStream(std::shared_ptr<ModelClient> client, ModelRequest request);
    ~AnswerStream();
    AnswerStream(const AnswerStream &) = delete;
    AnswerStream &operator=(const AnswerStream &) = delete;

    /// Waits until an item is there without taking it; false when none came within @p timeout.
    bool waitFor(std::chrono::milliseconds timeout);
    /// How the answer ended, when that is the next item.
    std::optional<AnswerOutcome> endedBeforeText();
    /// Takes the next item; nothing when none came within @p timeout.
    std::optional<Item> next(std::chrono::milliseconds timeout);
    /// Asks the model client to stop; items already queued stay.
    void cancel();

private:
    void run(const StopToken &stop);
    bool push(Item item);

    std::shared_ptr<ModelClient> m_client;
    ModelRequest m_request;
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::deque<Item> m_items;
    StopSource m_stop;
    std::thread m_worker;
};

} // namespace quellora::server
