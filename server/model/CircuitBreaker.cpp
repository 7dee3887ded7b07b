#include "model/CircuitBreaker.h"

#include <algorithm>

namespace quellora::server {
namespace {

/// How many attempts are remembered.
constexpr std::size_t mostLatest = 64;

} // namespace

CircuitBreaker::Attempt::~Attempt()
{
    if (!m_breaker || !m_isTrial)
        return;
    const std::lock_guard lock(m_breaker->m_mutex);
    m_breaker->m_isTrialOut = false;
}

void CircuitBreaker::Attempt::succeeded()
{
    const std::lock_guard lock(m_breaker->m_mutex);
    if (std::exchange(m_isTrial, false)) {
        m_breaker->m_isTrialOut = false;
        m_breaker->m_state = State::Closed;
        m_breaker->m_pause = m_breaker->m_limits.pause;
        m_breaker->m_latest.clear();
    }
    m_breaker->record(false);
}

void CircuitBreaker::Attempt::failed(const UpstreamProblem &problem, std::chrono::seconds wait)
{
    const std::lock_guard lock(m_breaker->m_mutex);
    if (std::exchange(m_isTrial, false)) {
        m_breaker->m_isTrialOut = false;
        m_breaker->m_pause = std::min(m_breaker->m_pause * 2, m_breaker->m_limits.longestPause);
        m_breaker->open(problem, wait);
        return;
    }
    m_breaker->record(true);
    if (m_breaker->m_state == State::Closed && m_breaker->isTooMuch())
        m_breaker->open(problem, wait);
}

CircuitBreaker::CircuitBreaker(BreakerLimits limits, Now now)
    : m_limits(limits), m_now(std::move(now)), m_pause(limits.pause)
{}

std::optional<CircuitBreaker::Attempt> CircuitBreaker::admit()
{
    const std::lock_guard lock(m_mutex);
    if (m_state == State::Open && m_now() >= m_openUntil)
        m_state = State::HalfOpen;
    if (m_state == State::Open || m_isTrialOut)
        return std::nullopt;
    m_isTrialOut = m_state == State::HalfOpen;
    return Attempt(shared_from_this(), m_isTrialOut);
}

CircuitBreaker::Standing CircuitBreaker::standing() const
{
    const std::lock_guard lock(m_mutex);
    Standing standing{m_state, std::chrono::milliseconds(0), m_problem, m_openings};
    if (m_state == State::Open) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_openUntil - m_now());
        standing.wait = std::max(left, std::chrono::milliseconds(0));
        if (standing.wait.count() == 0)
            standing.state = State::HalfOpen;
    }
    return standing;
}

void CircuitBreaker::record(bool isFailure)
{
    m_latest.emplace_back(m_now(), isFailure);
    if (m_latest.size() > mostLatest)
        m_latest.pop_front();
}

bool CircuitBreaker::isTooMuch() const
{
    const Time since = m_now() - m_limits.window;
    std::size_t all = 0;
    std::size_t failed = 0;
    for (const auto &[when, isFailure] : m_latest) {
        if (when < since)
            continue;
        ++all;
        failed += isFailure ? 1 : 0;
    }
    return failed >= m_limits.failures && failed * 2 >= all;
}

void CircuitBreaker::open(const UpstreamProblem &problem, std::chrono::seconds wait)
{
    m_state = State::Open;
    m_openUntil = m_now() + std::min(std::max(m_pause, wait), m_limits.longestPause);
    m_problem = problem;
    m_problem.words.clear();
    m_latest.clear();
    ++m_openings;
}

CircuitBreakers::CircuitBreakers(BreakerLimits limits, CircuitBreaker::Now now)
    : m_limits(limits), m_now(std::move(now))
{}

std::shared_ptr<CircuitBreaker> CircuitBreakers::of(const std::string &endpoint,
                                                    const std::string &model)
{
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_breakers, [](const auto &entry) { return entry.second.expired(); });
    auto &known = m_breakers[{endpoint, model}];
    auto breaker = known.lock();
    if (!breaker) {
        breaker = std::make_shared<CircuitBreaker>(m_limits, m_now);
        known = breaker;
    }
    return breaker;
}

} // namespace quellora::server
