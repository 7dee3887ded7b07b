#include "http/AnswerStream.h"

#include "base/Log.h"

#include <exception>

namespace quellora::server {

AnswerStream::AnswerStream(AnswerFunction answer, ModelRequest request)
    : m_answer(std::move(answer)), m_request(std::move(request))
{
    m_worker = std::thread([this] { run(m_stop.token()); });
}

AnswerStream::~AnswerStream()
{
    m_stop.requestStop();
    m_worker.join();
}

void AnswerStream::run(const StopToken &stop)
{
    AnswerOutcome outcome;
    try {
        outcome = m_answer(
            m_request,
            [this, &stop](std::string_view text) {
                if (stop.stopRequested())
                    return false;
                push(std::string(text));
                return true;
            },
            stop);
    } catch (const std::exception &problem) {
        outcome = AnswerOutcome::failed("unexpected error in the model client");
        Log::event(std::string("[AnswerStream] ERROR: ") + typeid(problem).name());
    }
    push(std::move(outcome));
}

void AnswerStream::push(Item item)
{
    {
        const std::lock_guard lock(m_mutex);
        m_items.push_back(std::move(item));
    }
    m_arrived.notify_all();
}

bool AnswerStream::waitFor(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(m_mutex);
    return m_arrived.wait_for(lock, timeout, [this] { return !m_items.empty(); });
}

std::optional<AnswerOutcome> AnswerStream::endedBeforeText()
{
    const std::lock_guard lock(m_mutex);
    if (m_items.empty() || !std::holds_alternative<AnswerOutcome>(m_items.front()))
        return std::nullopt;
    return std::get<AnswerOutcome>(m_items.front());
}

std::optional<AnswerStream::Item> AnswerStream::next(std::chrono::milliseconds timeout)
{
    if (!waitFor(timeout))
        return std::nullopt;
    const std::lock_guard lock(m_mutex);
    Item item = std::move(m_items.front());
    m_items.pop_front();
    return item;
}

void AnswerStream::cancel()
{
    m_stop.requestStop();
}

} // namespace quellora::server
