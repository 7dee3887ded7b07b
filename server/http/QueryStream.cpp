#include "http/QueryStream.h"

#include "base/Log.h"
#include "http/Replies.h"
#include "http/SseWriter.h"

#include <boost/asio/io_context.hpp>

#include <utility>

namespace quellora::server {
namespace {

using Steady = std::chrono::steady_clock;

/// How much text may wait for a slow client before the model is paused.
constexpr std::size_t mostBuffered = 32U * 1024U;
constexpr std::chrono::seconds stopWait(1);

} // namespace

QueryStream::QueryStream(Services &services, AnswerAccounting accounting, bool usedFallback,
                         AnswerStart answer, StreamSlots::Slot slot, std::string requestId)
    : m_services(services)
    , m_slot(std::move(slot))
    , m_accounting(std::move(accounting))
    , m_usedFallback(usedFallback)
    , m_start(std::move(answer))
    , m_requestId(std::move(requestId))
    , m_begin(Steady::now())
    , m_lastWrite(m_begin)
{
    ++m_services.metrics.runningAnswers;
}

QueryStream::~QueryStream()
{
    --m_services.metrics.runningAnswers;
}

void QueryStream::start(StreamOutput &output, EventLoop &loop)
{
    m_output = &output;
    m_loop = &loop;
    m_timer = std::make_unique<boost::asio::steady_timer>(loop.context());
    watchSilence();
    m_answer = std::exchange(m_start, nullptr)(*this, {loop, m_services.answerWorkers});
}

void QueryStream::watchSilence()
{
    m_timer->expires_at(m_lastWrite + m_services.config.timing.keepAlive);
    m_timer->async_wait([weak = weak_from_this()](const auto &error) {
        const auto self = weak.lock();
        if (error || !self || !self->m_output)
            return;
        const auto limit = self->m_services.config.timing.keepAlive;
        // A client that does not take what waits for it needs no sign of life.
        if (Steady::now() >= self->m_lastWrite + limit) {
            if (self->m_output->buffered() == 0)
                self->write([](const SseWriter &writer) { writer.keepAlive(); });
            else
                self->m_lastWrite = Steady::now();
        }
        self->watchSilence();
    });
}

void QueryStream::open()
{
    if (m_isOpen)
        return;
    m_isOpen = true;
    Response head;
    head.headers.set("Cache-Control", "no-store");
    head.headers.set("X-Accel-Buffering", "no");
    head.headers.set("Content-Type", "text/event-stream");
    m_output->begin(head);
}

void QueryStream::write(const std::function<void(const SseWriter &writer)> &event)
{
    open();
    m_lastWrite = Steady::now();
    event(SseWriter([this](std::string_view bytes) {
        m_output->write(bytes);
        return true;
    }));
}

void QueryStream::attemptFails(const FailedAttempt &attempt)
{
    using Next = FailedAttempt::Next;
    Metrics &metrics = m_services.metrics;
    if (!attempt.wasSpared)
        metrics.providerErrors.add({attempt.model, handlingOf(attempt.outcome).name});
    if (attempt.next == Next::Retry)
        metrics.retries.add({attempt.model});
    else if (attempt.next == Next::Fallback)
        metrics.fallbacks.add({attempt.model});
    log("ERROR: Model \"" + attempt.model + "\"" + (m_answerBytes > 0 ? " broke off: " : ": ") +
        attempt.outcome.reason +
        (attempt.next == Next::Retry      ? "; it is asked again"
         : attempt.next == Next::Fallback ? "; another one is asked"
                                          : ""));
}

void QueryStream::answeredBy(const std::string &model)
{
    if (model == m_accounting.model())
        return;
    m_usedFallback = true;
    m_accounting.setModel(model);
}

void QueryStream::answerGrows(std::string_view text)
{
    if (m_isOver)
        return;
    if (m_answerBytes == 0)
        m_services.metrics.firstText.record(
            std::chrono::duration<double>(Steady::now() - m_begin).count());
    m_answerBytes += text.size();
    write([text](const SseWriter &writer) { writer.chunk(text); });
    if (!m_isPaused && m_output->buffered() > mostBuffered) {
        m_isPaused = true;
        // Before start() has returned there is no answer to pause yet; the next piece does it.
        if (m_answer)
            m_answer->pause();
        else
            m_isPaused = false;
    }
    if (!m_accounting.isOverdrawn(m_answerBytes))
        return;
    log("Answer stopped: allowance of account " + std::to_string(m_accounting.account().id) +
        " overdrawn");
    dropAnswer();
    settle(std::nullopt, [this](const auto &) {
        write([](const SseWriter &writer) {
            writer.error("The token allowance of this account is used up.");
        });
        finish();
    });
}

void QueryStream::answerEnds(const AnswerOutcome &outcome)
{
    if (m_isOver)
        return;
    dropAnswer();
    const bool isComplete = outcome.kind == AnswerOutcome::Kind::Complete;
    if (isComplete) {
        settle(outcome.tokens, [this](const std::optional<Settlement> &settlement) {
            // Without a "done" event the client reports an unexpected end of the answer.
            if (settlement)
                write([&](const SseWriter &writer) {
                    writer.done(settlement->figures, settlement->tokens.total(), m_usedFallback);
                });
            else
                open();
            finish();
        });
    } else if (!m_isOpen) {
        replyToFailure(outcome);
    } else {
        if (m_answerBytes > 0 || outcome.tokens)
            settle(outcome.tokens, [this](const auto &) { finish(); });
        else
            finish();
    }
}

void QueryStream::replyToFailure(const AnswerOutcome &outcome)
{
    Response response;
    if (outcome.kind == AnswerOutcome::Kind::RateLimited)
        replyRateLimited(response, outcome.retryAfter);
    else if (outcome.kind == AnswerOutcome::Kind::Overloaded)
        replyOverloaded(response, outcome.retryAfter);
    else
        replyError(response, 502, handlingOf(outcome).forUser);
    m_timer->cancel();
    m_slot.reset();
    std::exchange(m_output, nullptr)->reply(std::move(response));
}

void QueryStream::drained()
{
    if (!m_isPaused || !m_answer)
        return;
    m_isPaused = false;
    m_answer->resume();
}

void QueryStream::clientGone()
{
    m_output = nullptr;
    m_timer->cancel();
    if (m_isOver)
        return;
    dropAnswer();
    log("Client left before the end of its answer");
    if (m_answerBytes > 0)
        settle(std::nullopt, [](const auto &) {});
    else
        m_slot.reset();
}

void QueryStream::serverStops()
{
    if (m_isOver)
        return;
    dropAnswer();
    if (m_answerBytes > 0) {
        settle(std::nullopt, [this](const auto &) { finish(); });
    } else if (m_isOpen) {
        finish();
    } else {
        AnswerOutcome outcome;
        outcome.kind = AnswerOutcome::Kind::Overloaded;
        outcome.retryAfter = stopWait;
        replyToFailure(outcome);
    }
}

void QueryStream::dropAnswer()
{
    m_isOver = true;
    // Its own call may have led here.
    if (m_answer)
        m_loop->post([answer = std::shared_ptr<RunningAnswer>(std::move(m_answer))] {});
}

void QueryStream::settle(const std::optional<TokenCount> &tokens,
                         std::function<void(const std::optional<Settlement> &)> then)
{
    m_services.workers.postAlways([self = shared_from_this(), tokens, then] {
        const auto settlement = std::make_shared<std::optional<Settlement>>();
        try {
            *settlement = self->m_accounting.settle(tokens, self->m_answerBytes);
        } catch (const DatabaseError &problem) {
            self->log(std::string("ERROR: usage not counted: ") + problem.what());
        }
        self->m_loop->post([self, then, settlement] {
            if (self->m_output)
                then(*settlement);
            self->m_slot.reset();
        });
    });
}

void QueryStream::finish()
{
    m_timer->cancel();
    std::exchange(m_output, nullptr)->finish();
    m_slot.reset();
}

void QueryStream::log(const std::string &text) const
{
    const LoggedRequest scope(m_requestId);
    Log::event("[QueryStream] " + text);
}

} // namespace quellora::server
