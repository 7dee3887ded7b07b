#include "model/BlockingAnswer.h"

#include "base/Log.h"
#include "base/WorkerPool.h"
#include "model/EventLoop.h"

#include <atomic>
#include <exception>
#include <typeinfo>
#include <utility>

namespace quellora::server {
namespace {

/// How much text may be on its way from a worker to the loop.
constexpr std::size_t mostUnderway = 64U * 1024U;
constexpr std::chrono::seconds overloadWait(5);

/// Shared by the worker and the loop; the sink is used on the loop only.
struct Shared
{
    Shared(EventLoop &itsLoop, AnswerSink *receiver) : loop(itsLoop), sink(receiver) {}

    EventLoop &loop;
    AnswerSink *sink;
    StopSource stop;
    std::atomic<bool> isPaused{false};
    std::atomic<std::size_t> underway{0};

    void end(const AnswerOutcome &outcome)
    {
        if (AnswerSink *receiver = std::exchange(sink, nullptr))
            receiver->answerEnds(outcome);
    }
};

class WorkerAnswer : public RunningAnswer
{
public:
    explicit WorkerAnswer(std::shared_ptr<Shared> shared) : m_shared(std::move(shared)) {}
    ~WorkerAnswer() override
    {
        m_shared->sink = nullptr;
        m_shared->stop.requestStop();
    }
    WorkerAnswer(const WorkerAnswer &) = delete;
    WorkerAnswer &operator=(const WorkerAnswer &) = delete;
    void pause() override { m_shared->isPaused = true; }
    void resume() override
    {
        m_shared->isPaused = false;
        m_shared->stop.wake();
    }

private:
    std::shared_ptr<Shared> m_shared;
};

bool deliver(const std::shared_ptr<Shared> &shared, std::string_view text)
{
    shared->stop.waitForStop([&] { return !shared->isPaused && shared->underway < mostUnderway; });
    if (shared->stop.stopRequested())
        return false;
    shared->underway += text.size();
    shared->loop.post([shared, piece = std::string(text)] {
        shared->underway -= piece.size();
        shared->stop.wake();
        if (shared->sink)
            shared->sink->answerGrows(piece);
    });
    return true;
}

AnswerOutcome run(const AnswerFunction &function, const ModelRequest &request,
                  const std::shared_ptr<Shared> &shared)
{
    try {
        return function(
            request, [&shared](std::string_view text) { return deliver(shared, text); },
            shared->stop.token());
    } catch (const std::exception &problem) {
        Log::event(std::string("[BlockingAnswer] ERROR: ") + typeid(problem).name());
        return AnswerOutcome::failed("unexpected error in the model client");
    }
}

/// Waits for an answer in another thread.
class Waiting : public AnswerSink
{
public:
    Waiting(const TextSink &sink, const StopToken &stop) : m_sink(sink), m_stop(stop) {}

    void answerGrows(std::string_view text) override
    {
        if (!m_isOver && !m_sink(text)) {
            m_outcome.kind = AnswerOutcome::Kind::Cancelled;
            finish();
        }
    }
    void answerEnds(const AnswerOutcome &outcome) override
    {
        if (m_isOver)
            return;
        m_outcome = outcome;
        finish();
    }
    AnswerOutcome wait()
    {
        m_stop.waitForStop([this] { return m_isOver.load(); });
        AnswerOutcome stopped;
        stopped.kind = AnswerOutcome::Kind::Cancelled;
        return m_isOver ? m_outcome : stopped;
    }

private:
    void finish()
    {
        m_isOver = true;
        m_stop.wake();
    }

    const TextSink &m_sink;
    const StopToken &m_stop;
    AnswerOutcome m_outcome;
    std::atomic<bool> m_isOver{false};
};

} // namespace

AnswerSource answerOnWorkers(AnswerFunction function)
{
    return [function = std::move(function)](ModelRequest request) -> AnswerStart {
        const auto question = std::make_shared<const ModelRequest>(std::move(request));
        return [function, question](AnswerSink &sink, const AnswerPlace &place) {
            const auto shared = std::make_shared<Shared>(place.loop, &sink);
            const bool isTaken = place.workers.post([function, question, shared] {
                const AnswerOutcome outcome = run(function, *question, shared);
                shared->loop.post([shared, outcome] { shared->end(outcome); });
            });
            if (!isTaken) {
                place.loop.post([shared] {
                    AnswerOutcome outcome;
                    outcome.kind = AnswerOutcome::Kind::Overloaded;
                    outcome.reason = "too many answers wait for a worker";
                    outcome.retryAfter = overloadWait;
                    shared->end(outcome);
                });
            }
            return std::make_unique<WorkerAnswer>(shared);
        };
    };
}

AnswerOutcome waitForAnswer(const AnswerSource &source, ModelRequest request, const TextSink &sink,
                            const StopToken &stop, const AnswerPlace &place)
{
    const AnswerStart start = source(std::move(request));
    Waiting waiting(sink, stop);
    std::unique_ptr<RunningAnswer> answer;
    place.loop.postAndWait([&] { answer = start(waiting, place); });
    AnswerOutcome outcome = waiting.wait();
    place.loop.postAndWait([&] { answer.reset(); });
    return outcome;
}

} // namespace quellora::server
