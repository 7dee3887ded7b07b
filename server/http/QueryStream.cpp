#include "http/QueryStream.h"

#include "base/Log.h"
#include "base/Text.h"
#include "http/Replies.h"
#include "http/SseWriter.h"

#include <boost/asio/io_context.hpp>

#include <algorithm>
#include <utility>

namespace quellora::server {
namespace {

using Steady = std::chrono::steady_clock;

/// How much text may wait for a slow client before the model is paused.
constexpr std::size_t mostBuffered = 32U * 1024U;
/// How often in a row the store may fail while text waits for it.
constexpr int mostStoreFailures = 4;
constexpr std::chrono::seconds stopWait(1);
/// In bytes.
constexpr std::size_t longestCharacter = 4;

} // namespace

QueryStream::QueryStream(Services &services, AnswerAccounting accounting, bool usedFallback,
                         AnswerStart answer, RunningStreams::Place place, std::string requestId)
    : m_services(services)
    , m_place(std::move(place))
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
    // The client may leave before the stream is started.
    if (!m_isAccounted)
        m_services.workers.postAlways(
            [accounting = std::move(m_accounting)]() mutable { accounting.release(); });
}

RunningStreams::Revoke QueryStream::revoker(const std::shared_ptr<QueryStream> &stream)
{
    return [weak = std::weak_ptr(stream)](Revocation why) {
        auto self = weak.lock();
        if (!self)
            return;
        EventLoop *loop = nullptr;
        {
            const std::lock_guard lock(self->m_mutex);
            self->m_revocation = why;
            loop = self->m_loop;
        }
        // Moved, since this reference may become the last one, which must end on the loop.
        if (loop)
            loop->post([self = std::move(self)] { self->endRevoked(); });
    };
}

void QueryStream::start(StreamOutput &output, EventLoop &loop)
{
    m_output = &output;
    m_timer = std::make_unique<boost::asio::steady_timer>(loop.context());
    bool isRevoked = false;
    {
        const std::lock_guard lock(m_mutex);
        m_loop = &loop;
        isRevoked = m_revocation.has_value();
    }
    if (isRevoked) {
        endRevoked();
        return;
    }
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
            if (!self->m_held.empty())
                self->cover();
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
    if (m_isOver)
        return;
    Metrics &metrics = m_services.metrics;
    if (!attempt.wasSpared)
        metrics.providerErrors.add({attempt.model, handlingOf(attempt.outcome).name});
    if (attempt.next == Next::Retry)
        metrics.retries.add({attempt.model});
    else if (attempt.next == Next::Fallback)
        metrics.fallbacks.add({attempt.model});
    log("ERROR: Model \"" + attempt.model + "\"" + (m_hasText ? " broke off: " : ": ") +
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
    if (!m_hasText)
        m_services.metrics.firstText.record(
            std::chrono::duration<double>(Steady::now() - m_begin).count());
    m_hasText = true;
    if (m_held.empty() && m_sentBytes + text.size() <= m_accounting.coveredBytes()) {
        deliver(text);
    } else {
        m_held += text;
        deliverHeld();
    }
    adjustFlow();
    if (m_accounting.needsMore(m_sentBytes + m_held.size()))
        cover();
}

void QueryStream::deliver(std::string_view text)
{
    m_sentBytes += text.size();
    write([text](const SseWriter &writer) { writer.chunk(text); });
    m_isFull = m_isFull || m_output->buffered() > mostBuffered;
}

void QueryStream::deliverHeld()
{
    std::size_t length = std::min(m_accounting.coveredBytes() - m_sentBytes, m_held.size());
    // Cut between characters. The text may be no proper UTF-8.
    for (std::size_t back = 1; back < longestCharacter && length > 0 && length < m_held.size() &&
                               isContinuationByte(m_held[length]);
         ++back)
        --length;
    if (length == 0)
        return;
    deliver(std::string_view(m_held).substr(0, length));
    m_held.erase(0, length);
}

void QueryStream::adjustFlow()
{
    const bool mustPause = m_isFull || !m_held.empty();
    if (!m_answer || mustPause == m_isPaused)
        return;
    m_isPaused = mustPause;
    if (mustPause)
        m_answer->pause();
    else
        m_answer->resume();
}

void QueryStream::cover()
{
    if (m_isCovering)
        return;
    m_isCovering = true;
    const auto refusal = std::make_shared<std::optional<AnswerRefusal>>();
    const auto isDone = std::make_shared<bool>(false);
    onWorker(
        [this, least = m_sentBytes + std::min(m_held.size(), longestCharacter),
         most = m_sentBytes + m_held.size(), refusal, isDone] {
            try {
                *refusal = m_accounting.cover(least, most);
                *isDone = true;
            } catch (const DatabaseError &problem) {
                log(std::string("WARNING: No tokens can be reserved: ") + problem.what());
            }
        },
        [this, refusal, isDone] {
            m_isCovering = false;
            if (m_isOver)
                return;
            if (*isDone)
                onCovered(*refusal);
            else
                onStoreFailure();
        });
}

void QueryStream::onCovered(const std::optional<AnswerRefusal> &refusal)
{
    m_storeFailures = 0;
    const std::string account = "account " + std::to_string(m_accounting.account().id);
    if (refusal == AnswerRefusal::NoAccount) {
        log("Answer stopped: " + account + " may no longer ask");
        endEarly("This account may no longer ask questions.");
        return;
    }
    deliverHeld();
    adjustFlow();
    if (m_held.empty()) {
        if (m_heldEnd)
            answerEnds(*std::exchange(m_heldEnd, std::nullopt));
    } else if (refusal) {
        log("Answer stopped: allowance of " + account + " overdrawn");
        endEarly("The token allowance of this account is used up.");
    } else {
        cover();
    }
}

void QueryStream::onStoreFailure()
{
    // Tried again with the next text, or in the client's next silence.
    if (m_held.empty() || ++m_storeFailures < mostStoreFailures)
        return;
    log("ERROR: Answer stopped: the store does not answer");
    endEarly("The server cannot reach its data. Please ask again later.");
}

void QueryStream::answerEnds(const AnswerOutcome &outcome)
{
    if (m_isOver)
        return;
    const bool isComplete = outcome.kind == AnswerOutcome::Kind::Complete;
    if (isComplete && !m_held.empty()) {
        m_heldEnd = outcome;
        return;
    }
    dropAnswer();
    if (isComplete) {
        settle(outcome.tokens, [this](const Settlement &settlement) {
            write([&](const SseWriter &writer) {
                writer.done(settlement.figures, settlement.tokens.total(), m_usedFallback);
            });
            finish();
        });
        return;
    }
    close(outcome.tokens, [this, response = replyTo(outcome)] {
        if (m_isOpen)
            // Without a "done" event the client reports an unexpected end of the answer.
            finish();
        else
            reply(response);
    });
}

Response QueryStream::replyTo(const AnswerOutcome &outcome)
{
    Response response;
    if (outcome.kind == AnswerOutcome::Kind::RateLimited)
        replyRateLimited(response, outcome.retryAfter);
    else if (outcome.kind == AnswerOutcome::Kind::Overloaded)
        replyOverloaded(response, outcome.retryAfter);
    else
        replyError(response, 502, handlingOf(outcome).forUser);
    return response;
}

void QueryStream::drained()
{
    m_isFull = false;
    if (!m_isOver)
        adjustFlow();
}

void QueryStream::clientGone()
{
    m_output = nullptr;
    m_timer->cancel();
    if (m_isOver)
        return;
    dropAnswer();
    log("Client left before the end of its answer");
    close(std::nullopt, [] {});
}

void QueryStream::serverStops()
{
    if (m_isOver)
        return;
    Response response;
    replyOverloaded(response, stopWait);
    endEarly("The server is being restarted. Please ask again.", std::move(response));
}

void QueryStream::endRevoked()
{
    if (m_isOver)
        return;
    Revocation why = Revocation::Deleted;
    {
        const std::lock_guard lock(m_mutex);
        why = m_revocation.value_or(why);
    }
    log("Answer stopped: account " + std::to_string(m_accounting.account().id) +
        " may no longer ask");
    Response response;
    std::string message;
    switch (why) {
    case Revocation::Suspended:
        message = "This account has been suspended.";
        replyError(response, 403, "the account is suspended");
        break;
    case Revocation::SignedOut:
        message = "You have been signed out. Please sign in again.";
        replyError(response, 401, "the session has been ended");
        break;
    case Revocation::Deleted:
        message = "This account has been deleted.";
        replyError(response, 401, "the account has been deleted");
        break;
    }
    endEarly(message, std::move(response));
}

void QueryStream::endEarly(const std::string &message, std::optional<Response> instead)
{
    dropAnswer();
    close(std::nullopt, [this, message, instead = std::move(instead)] {
        if (instead && !m_isOpen) {
            reply(*instead);
            return;
        }
        write([&](const SseWriter &writer) { writer.error(message); });
        finish();
    });
}

void QueryStream::dropAnswer()
{
    m_isOver = true;
    // Its own call may have led here.
    if (m_answer)
        m_loop->post([answer = std::shared_ptr<RunningAnswer>(std::move(m_answer))] {});
}

void QueryStream::settle(const std::optional<TokenCount> &tokens,
                         std::function<void(const Settlement &)> then)
{
    m_isAccounted = true;
    const auto settlement = std::make_shared<Settlement>();
    onWorker([this, tokens, settlement] { *settlement = m_accounting.settle(tokens, m_sentBytes); },
             [this, then = std::move(then), settlement] {
                 if (m_output)
                     then(*settlement);
                 m_place.reset();
             });
}

void QueryStream::close(const std::optional<TokenCount> &tokens, const std::function<void()> &then)
{
    if (tokens || m_hasText) {
        settle(tokens, [then](const Settlement &) { then(); });
        return;
    }
    m_isAccounted = true;
    onWorker([this] { m_accounting.release(); },
             [this, then] {
                 if (m_output)
                     then();
                 m_place.reset();
             });
}

void QueryStream::onWorker(std::function<void()> work, std::function<void()> then)
{
    // Moved back to the loop, where the last reference must end.
    const auto self = std::make_shared<std::shared_ptr<QueryStream>>(shared_from_this());
    m_services.workers.postAlways([self, work = std::move(work), then = std::move(then)] {
        const LoggedRequest scope((*self)->m_requestId);
        work();
        EventLoop &loop = *(*self)->m_loop;
        loop.post([self = std::move(*self), then] { then(); });
    });
}

void QueryStream::reply(Response response)
{
    m_timer->cancel();
    std::exchange(m_output, nullptr)->reply(std::move(response));
}

void QueryStream::finish()
{
    m_timer->cancel();
    std::exchange(m_output, nullptr)->finish();
}

void QueryStream::log(const std::string &text) const
{
    const LoggedRequest scope(m_requestId);
    Log::event("[QueryStream] " + text);
}

} // namespace quellora::server
