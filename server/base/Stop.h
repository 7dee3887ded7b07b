#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace quellora::server {

/// Tells work on any thread to stop. Copies share one state; a default-constructed token is never
/// stopped. (Shipped versions of libc++ lack std::stop_token.)
class StopToken
{
public:
    StopToken() = default;

    bool stopRequested() const
    {
        const std::lock_guard lock(m_state->mutex);
        return m_state->isRequested;
    }
    /// Blocks until a stop is requested or @p until returns true. Every wake() re-evaluates
    /// @p until.
    template <typename Condition>
    void waitForStop(Condition until) const
    {
        std::unique_lock lock(m_state->mutex);
        m_state->changed.wait(lock, [&] { return m_state->isRequested || until(); });
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
