#include "model/AnswerChain.h"

#include "base/Text.h"
#include "base/WorkerPool.h"
#include "model/EventLoop.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <random>
#include <utility>

namespace quellora::server {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Next = FailedAttempt::Next;

/// What a client that must wait is told when the provider has not said how long.
constexpr seconds usualWait(30);

double randomShare()
{
    thread_local std::mt19937_64 engine{std::random_device{}()};
    return std::uniform_real_distribution<double>(0, 1)(engine);
}

struct Chain
{
    std::vector<ChainLink> links;
    ChainLimits limits;
};

bool passes(const ChainLink &link)
{
    return !link.breaker || link.breaker->standing().wait.count() == 0;
}

AnswerStart prepared(const ChainLink &link, ModelRequest question)
{
    question.model = link.upstream;
    return link.answer(std::move(question));
}

/// The outcome for a model that is not asked, because it has failed too often.
AnswerOutcome sparedOutcome(const CircuitBreaker::Standing &standing)
{
    AnswerOutcome outcome =
        AnswerOutcome::failed("spared after repeated failures", standing.problem);
    outcome.retryAfter = std::chrono::ceil<seconds>(standing.wait);
    if (standing.problem.fault == ProviderFault::RateLimited)
        outcome.kind = AnswerOutcome::Kind::RateLimited;
    return outcome;
}

bool asksToWait(const AnswerOutcome &outcome)
{
    return outcome.kind == AnswerOutcome::Kind::RateLimited ||
           outcome.kind == AnswerOutcome::Kind::Overloaded;
}

/// One question on its way through the chain.
class ChainedAnswer : public RunningAnswer, private AnswerSink
{
public:
    /// @p start is ready for the link with the number @p first.
    ChainedAnswer(AnswerSink &sink, const AnswerPlace &place, std::shared_ptr<const Chain> chain,
                  std::shared_ptr<const ModelRequest> question, std::size_t first,
                  AnswerStart start)
        : m_sink(sink)
        , m_place(place)
        , m_chain(std::move(chain))
        , m_question(std::move(question))
        , m_promptBytes(m_question->prompt.size())
        , m_ready(first)
        , m_start(std::move(start))
        , m_wait(place.loop.context())
        , m_deadline(place.loop.context())
    {
        m_deadline.expires_after(m_chain->limits.answer);
        m_deadline.async_wait([this, alive = std::weak_ptr(m_alive)](const auto &error) {
            if (!error && !alive.expired())
                takeTooLong();
        });
        ask();
    }

    void pause() override
    {
        if (m_current)
            m_current->pause();
    }
    void resume() override
    {
        if (m_current)
            m_current->resume();
    }

private:
    const ChainLink &link() const { return m_chain->links[m_index]; }

    /// Asks the current model, or passes it over.
    void ask()
    {
        m_attempt.reset();
        if (link().breaker) {
            if (auto attempt = link().breaker->admit()) {
                m_attempt.emplace(std::move(*attempt));
            } else {
                later([this] { fail(sparedOutcome(link().breaker->standing()), true); });
                return;
            }
        }
        if (m_ready == m_index)
            m_current = m_start(*this, m_place);
        else
            prepare();
    }

    /// Runs @p step unless this answer is gone by then.
    void later(std::function<void()> step)
    {
        m_place.loop.post([step = std::move(step), alive = std::weak_ptr(m_alive)] {
            if (!alive.expired())
                step();
        });
    }

    void prepare()
    {
        auto job = [this, &loop = m_place.loop, alive = std::weak_ptr(m_alive), chain = m_chain,
                    question = m_question, index = m_index] {
            auto start = prepared(chain->links[index], *question);
            loop.post([this, alive, index, start = std::move(start)]() mutable {
                if (alive.expired())
                    return;
                m_start = std::move(start);
                m_ready = index;
                m_current = m_start(*this, m_place);
            });
        };
        if (m_place.workers.post(std::move(job)))
            return;
        AnswerOutcome outcome;
        outcome.kind = AnswerOutcome::Kind::Overloaded;
        outcome.reason = "too much waits for a worker";
        later([this, outcome] { fail(outcome); });
    }

    void answerGrows(std::string_view text) override
    {
        begin();
        m_answerBytes += text.size();
        m_sink.answerGrows(text);
    }

    void answerEnds(const AnswerOutcome &outcome) override
    {
        if (outcome.kind == AnswerOutcome::Kind::Cancelled) {
            end(outcome);
        } else if (outcome.kind == AnswerOutcome::Kind::Complete) {
            begin();
            end(outcome);
        } else {
            fail(outcome);
        }
    }

    /// From now on the answer is this model's.
    void begin()
    {
        if (std::exchange(m_hasBegun, true))
            return;
        if (m_attempt)
            m_attempt->succeeded();
        m_question.reset();
        m_start = nullptr;
        m_sink.answeredBy(link().id);
    }

    void fail(const AnswerOutcome &outcome, bool wasSpared = false)
    {
        const FaultHandling &handling = handlingOf(outcome);
        if (m_attempt && handling.countsAgainst)
            m_attempt->failed(problemOf(outcome), outcome.retryAfter);
        const auto wait = handling.isRetried && !wasSpared && !m_hasBegun
                              ? retryWait(m_retries, outcome.retryAfter, m_chain->limits)
                              : std::nullopt;
        const bool hasNext = m_index + 1 < m_chain->links.size();
        Next next = Next::GiveUp;
        if (wait)
            next = Next::Retry;
        else if (!m_hasBegun && handling.fallsBack && hasNext)
            next = Next::Fallback;
        m_sink.attemptFails({link().id, outcome, next, wasSpared});
        if (next == Next::Retry) {
            retryAfter(*wait);
            return;
        }
        // That a model will answer after a while is more useful to know than why another cannot.
        if (!m_worst || (asksToWait(outcome) && !asksToWait(*m_worst)))
            m_worst = outcome;
        if (next == Next::Fallback) {
            m_current.reset();
            ++m_index;
            m_retries = 0;
            ask();
            return;
        }
        end(m_hasBegun ? outcome : *m_worst);
    }

    static UpstreamProblem problemOf(const AnswerOutcome &outcome)
    {
        UpstreamProblem problem = outcome.problem;
        if (outcome.kind == AnswerOutcome::Kind::RateLimited) {
            problem.kind = UpstreamProblem::Kind::Refused;
            problem.fault = ProviderFault::RateLimited;
        }
        return problem;
    }

    void retryAfter(milliseconds wait)
    {
        ++m_retries;
        m_current.reset();
        m_attempt.reset();
        m_wait.expires_after(wait);
        m_wait.async_wait([this, alive = std::weak_ptr(m_alive)](const auto &error) {
            if (!error && !alive.expired())
                ask();
        });
    }

    void takeTooLong()
    {
        m_wait.cancel();
        m_current.reset();
        const AnswerOutcome outcome = AnswerOutcome::failed("the answer took longer than allowed",
                                                            {UpstreamProblem::Kind::Silent});
        // Whoever writes for that long is slow but well.
        if (m_attempt && !m_hasBegun)
            m_attempt->failed(outcome.problem, seconds(0));
        m_sink.attemptFails({link().id, outcome, Next::GiveUp, false});
        end(outcome);
    }

    void end(AnswerOutcome outcome)
    {
        m_deadline.cancel();
        if (asksToWait(outcome) && outcome.retryAfter.count() == 0)
            outcome.retryAfter = usualWait;
        outcome.tokens = believableTokens(outcome.tokens, m_promptBytes, m_answerBytes,
                                          outcome.kind == AnswerOutcome::Kind::Complete);
        // This object may be destroyed in the call.
        m_sink.answerEnds(outcome);
    }

    AnswerSink &m_sink;
    AnswerPlace m_place;
    std::shared_ptr<const Chain> m_chain;
    /// Needed until a model answers.
    std::shared_ptr<const ModelRequest> m_question;
    std::size_t m_promptBytes;
    std::size_t m_answerBytes = 0;
    std::size_t m_index = 0;
    /// The link that m_start belongs to.
    std::size_t m_ready;
    AnswerStart m_start;
    int m_retries = 0;
    bool m_hasBegun = false;
    std::optional<CircuitBreaker::Attempt> m_attempt;
    /// What is passed on when no model answers.
    std::optional<AnswerOutcome> m_worst;
    boost::asio::steady_timer m_wait;
    boost::asio::steady_timer m_deadline;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>();
    std::unique_ptr<RunningAnswer> m_current;
};

} // namespace

std::optional<milliseconds> retryWait(int retry, seconds asked, const ChainLimits &limits)
{
    if (retry >= limits.retries || asked > limits.longestWait)
        return std::nullopt;
    milliseconds bound = limits.firstWait;
    for (int i = 0; i < retry && bound < limits.longestWait; ++i)
        bound *= 2;
    bound = std::min(bound, limits.longestWait);
    const double share = limits.random ? limits.random() : randomShare();
    return asked +
           milliseconds(static_cast<std::int64_t>(share * static_cast<double>(bound.count())));
}

std::optional<TokenCount> believableTokens(const std::optional<TokenCount> &tokens,
                                           std::size_t promptBytes, std::size_t answerBytes,
                                           bool isComplete)
{
    if (!tokens || answerBytes == 0)
        return tokens;
    TokenCount count = *tokens;
    if (count.input <= 0)
        count.input = estimatedTokens(promptBytes);
    if (count.output <= 0 || !isComplete)
        count.output = std::max(count.output, estimatedTokens(answerBytes));
    return count;
}

AnswerSource answerChain(std::vector<ChainLink> links, ChainLimits limits)
{
    const auto chain = std::make_shared<const Chain>(Chain{std::move(links), std::move(limits)});
    return [chain](ModelRequest request) -> AnswerStart {
        const auto question = std::make_shared<const ModelRequest>(std::move(request));
        const auto found = std::find_if(chain->links.begin(), chain->links.end(), passes);
        const std::size_t first = found == chain->links.end()
                                      ? 0
                                      : static_cast<std::size_t>(found - chain->links.begin());
        return [chain, question, first, start = prepared(chain->links[first], *question)](
                   AnswerSink &sink, const AnswerPlace &place) {
            return std::make_unique<ChainedAnswer>(sink, place, chain, question, first, start);
        };
    };
}

} // namespace quellora::server
