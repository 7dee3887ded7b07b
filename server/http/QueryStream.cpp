#include "http/QueryStream.h"

#include "base/Log.h"
#include "base/Text.h"
#include "http/Replies.h"
#include "http/SseWriter.h"

#include <algorithm>

namespace quellora::server {
namespace {

using Steady = std::chrono::steady_clock;

/// How often a silent stream checks for a disconnected client or a shutdown.
constexpr std::chrono::milliseconds tick(100);

} // namespace

QueryStream::QueryStream(Services &services, Account account, ChosenModel model,
                         ModelRequest request, StreamSlots::Slot slot)
    : m_services(services)
    , m_slot(std::move(slot))
    , m_account(std::move(account))
    , m_model(std::move(model))
    , m_promptBytes(request.prompt.size())
    , m_usedBefore(services.usage.current(m_account.id).total())
    , m_begun(Steady::now())
    , m_lastWrite(m_begun)
    , m_answer(m_model.answer, std::move(request))
{
    ++m_services.metrics.runningAnswers;
}

QueryStream::~QueryStream()
{
    --m_services.metrics.runningAnswers;
    if (!m_settled && m_answerBytes > 0) {
        Log::event("[QueryStream] Client left before the end of its answer");
        try {
            settle(std::nullopt);
        } catch (const DatabaseError &problem) {
            Log::event(std::string("[QueryStream] ERROR: usage not counted: ") + problem.what());
        }
    }
}

bool QueryStream::open(Response &response)
{
    const auto deadline = Steady::now() + m_services.config.timing.keepAlive;
    while (!m_answer.waitFor(tick) && Steady::now() < deadline &&
           !m_services.stopping.stopRequested()) {
    }
    const auto ended = m_answer.endedBeforeText();
    if (!ended || ended->kind == AnswerOutcome::Kind::Complete)
        return true;
    Log::event("[QueryStream] ERROR: Model \"" + m_model.id + "\": " + ended->reason);
    m_settled = true;
    countFailure(*ended);
    if (ended->kind == AnswerOutcome::Kind::RateLimited)
        replyRateLimited(response, ended->retryAfter);
    else
        replyError(response, 502, "the model could not be asked");
    return false;
}

bool QueryStream::pump(BodySink &sink)
{
    const SseWriter writer([&sink](std::string_view bytes) { return sink.write(bytes); });
    const auto keepAlive = m_services.config.timing.keepAlive;
    const auto item = m_answer.next(std::min(tick, keepAlive));
    if (m_services.stopping.stopRequested()) {
        m_answer.cancel();
        sink.done();
        return true;
    }
    if (!item) {
        if (Steady::now() - m_lastWrite < keepAlive)
            return true;
        m_lastWrite = Steady::now();
        return writer.keepAlive();
    }
    m_lastWrite = Steady::now();
    if (const auto *text = std::get_if<std::string>(&*item))
        return writeText(writer, *text, sink);
    return end(writer, std::get<AnswerOutcome>(*item), sink);
}

bool QueryStream::writeText(const SseWriter &writer, const std::string &text, BodySink &sink)
{
    if (m_answerBytes == 0)
        m_services.metrics.firstText.record(
            std::chrono::duration<double>(Steady::now() - m_begun).count());
    m_answerBytes += text.size();
    if (!writer.chunk(text))
        return false;
    if (!UsageLedger::overdrawn(m_account, m_usedBefore + estimated().total()))
        return true;
    Log::event("[QueryStream] Answer stopped: allowance of account " +
               std::to_string(m_account.id) + " overdrawn");
    m_answer.cancel();
    settle(std::nullopt);
    const bool written = writer.error("The token allowance of this account is used up.");
    sink.done();
    return written;
}

bool QueryStream::end(const SseWriter &writer, const AnswerOutcome &outcome, BodySink &sink)
{
    if (outcome.kind != AnswerOutcome::Kind::Complete) {
        // Without a "done" event the client reports an unexpected end of the answer.
        Log::event("[QueryStream] ERROR: Model \"" + m_model.id +
                   "\" broke off: " + outcome.reason);
        countFailure(outcome);
        if (m_answerBytes > 0 || outcome.tokens)
            settle(outcome.tokens);
        m_settled = true;
        sink.done();
        return true;
    }
    const TokenCount tokens = outcome.tokens.value_or(estimated());
    settle(tokens);
    const Account account = m_services.accounts.find(m_account.id).value_or(m_account);
    const bool written =
        writer.done(m_services.usage.figures(account), tokens.total(), m_model.usedFallback);
    sink.done();
    return written;
}

TokenCount QueryStream::estimated() const
{
    return TokenCount{estimatedTokens(m_promptBytes), estimatedTokens(m_answerBytes)};
}

void QueryStream::settle(const std::optional<TokenCount> &tokens)
{
    if (m_settled)
        return;
    m_settled = true;
    const TokenCount counted = tokens.value_or(estimated());
    m_services.usage.add(m_account.id, counted, m_model.id);
    const auto amount = [](std::int64_t count) {
        return static_cast<std::uint64_t>(std::max<std::int64_t>(count, 0));
    };
    m_services.metrics.tokens.add({m_model.id, "input"}, amount(counted.input));
    m_services.metrics.tokens.add({m_model.id, "output"}, amount(counted.output));
}

void QueryStream::countFailure(const AnswerOutcome &outcome)
{
    if (outcome.kind == AnswerOutcome::Kind::RateLimited)
        m_services.metrics.providerErrors.add({m_model.id, "rate-limited"});
    else if (outcome.kind == AnswerOutcome::Kind::Failed)
        m_services.metrics.providerErrors.add({m_model.id, "failed"});
}

} // namespace quellora::server
