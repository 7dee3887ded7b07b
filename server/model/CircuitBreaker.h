#pragma once

#include "model/Answer.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace quellora::server {

/// When a breaker opens and for how long.
struct BreakerLimits
{
    /// Opens at that many failures within `window`, when they are at least half of all attempts.
    std::size_t failures = 5;
    std::chrono::seconds window{60};
    /// How long nothing is sent. Doubles with each trial that fails.
    std::chrono::seconds pause{30};
    std::chrono::seconds longestPause{300};
};

/// Keeps questions away from one model of one provider while that fails: closed (all questions
/// pass), open (none passes), half-open (one passes as a trial; its first text closes the breaker,
/// its failure opens it again). Thread-safe.
class CircuitBreaker : public std::enable_shared_from_this<CircuitBreaker>
{
public:
    using Time = std::chrono::steady_clock::time_point;
    using Now = std::function<Time()>;
    enum class State { Closed, Open, HalfOpen };

    /// How it stands.
    struct Standing
    {
        State state = State::Closed;
        /// Until the next trial; 0 when a question would pass now.
        std::chrono::milliseconds wait{0};
        /// The failure that opened it last. Without the provider's words.
        UpstreamProblem problem = {};
        /// How often it has opened.
        std::uint64_t openings = 0;
    };

    /// A question that has passed. Without a report it counts for nothing.
    class Attempt
    {
    public:
        Attempt(std::shared_ptr<CircuitBreaker> breaker, bool isTrial)
            : m_breaker(std::move(breaker)), m_isTrial(isTrial)
        {}
        Attempt(Attempt &&other) noexcept
            : m_breaker(std::move(other.m_breaker))
            , m_isTrial(std::exchange(other.m_isTrial, false))
        {}
        Attempt &operator=(Attempt &&) = delete;
        Attempt(const Attempt &) = delete;
        Attempt &operator=(const Attempt &) = delete;
        ~Attempt();

        /// The model answers.
        void succeeded();
        /// Also after succeeded(), when the answer breaks off. @p wait: what the provider asks for.
        void failed(const UpstreamProblem &problem, std::chrono::seconds wait);

    private:
        std::shared_ptr<CircuitBreaker> m_breaker;
        bool m_isTrial;
    };

    CircuitBreaker(BreakerLimits limits, Now now);

    /// Lets a question pass, or nothing.
    std::optional<Attempt> admit();
    Standing standing() const;

private:
    void record(bool isFailure);
    void open(const UpstreamProblem &problem, std::chrono::seconds wait);
    bool isTooMuch() const;

    const BreakerLimits m_limits;
    const Now m_now;
    mutable std::mutex m_mutex;
    State m_state = State::Closed;
    Time m_openUntil;
    std::chrono::seconds m_pause;
    bool m_isTrialOut = false;
    UpstreamProblem m_problem;
    std::uint64_t m_openings = 0;
    /// The latest attempts and whether they failed.
    std::deque<std::pair<Time, bool>> m_latest;
};

/// The breakers by provider endpoint and model. They outlive a change of the models on offer.
/// Thread-safe.
class CircuitBreakers
{
public:
    explicit CircuitBreakers(BreakerLimits limits = {},
                             CircuitBreaker::Now now = &std::chrono::steady_clock::now);

    /// The breaker of @p model at @p endpoint, the same as long as anybody holds it.
    std::shared_ptr<CircuitBreaker> of(const std::string &endpoint, const std::string &model);

private:
    const BreakerLimits m_limits;
    const CircuitBreaker::Now m_now;
    std::mutex m_mutex;
    std::map<std::pair<std::string, std::string>, std::weak_ptr<CircuitBreaker>> m_breakers;
};

} // namespace quellora::server
