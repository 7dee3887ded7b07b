#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace quellora::server {

/// Tells work on any thread to stop, on request or at a deadline. Copies share one state; a
/// default-constructed token is never stopped. (Shipped versions of libc++ lack std::stop_token.)
class StopToken
{
public:
    using Moment = std::chrono::steady_clock::time_point;

    StopToken() = default;

    /// A copy that counts as stopped from @p moment on, too.
    StopToken before(Moment moment) const
    {
        StopToken token = *this;
        token.m_deadline = std::min(moment, m_deadline);
        return token;
    }
    bool stopRequested() const
    {
        const std::lock_guard lock(m_state->mutex);
        return m_state->isRequested || expired();
    }
    /// Whether the deadline has passed.
    bool expired() const
    {
        return m_deadline != Moment::max() && std::chrono::steady_clock::now() >= m_deadline;
    }
    /// Blocks until a stop is requested, the deadline has passed or @p until returns true. Every
    /// wake() re-evaluates @p until.
    template <typename Condition>
    void waitForStop(Condition until) const
    {
        std::unique_lock lock(m_state->mutex);
        const auto isOver = [&] { return m_state->isRequested || until(); };
        if (m_deadline == Moment::max())
            m_state->changed.wait(lock, isOver);
        else
            m_state->changed.wait_until(lock, m_deadline, isOver);
    }
    /// Blocks for @p time or until @p until returns true. Ignores stop requests.
    template <typename Condition>
    void waitFor(std::chrono::milliseconds time, Condition until) const
    {
        std::unique_lock lock(m_state->mutex);
        m_state->changed.wait_for(lock, time, until);
    }
    /// Re-evaluates all waiting conditions.
    void wake() const
    {
        // Taking the lock ensures that no waiter is between evaluating its condition and waiting.
        {
            const std::lock_guard lock(m_state->mutex);
        }
        m_state->changed.notify_all();
    }

protected:
    struct State
    {
        std::mutex mutex;
        std::condition_variable changed;
        bool isRequested = false;
    };

    std::shared_ptr<State> m_state = std::make_shared<State>();
    Moment m_deadline = Moment::max();
};

/// Requests the stop.
class StopSource : public StopToken
{
public:
    void requestStop()
    {
        {
            const std::lock_guard lock(m_state->mutex);
            m_state->isRequested = true;
        }
        m_state->changed.notify_all();
    }
    StopToken token() const { return *this; }
};

} // namespace quellora::server
