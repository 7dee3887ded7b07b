#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace quellora::server {

/// Tells work on any thread that it should end. Copies share one state; a token made by itself is
/// never stopped. (The standard library's own is missing from libc++ as systems ship it.)
class StopToken
{
public:
    StopToken() = default;

    bool stopRequested() const
    {
        const std::lock_guard lock(m_state->mutex);
        return m_state->isRequested;
    }
    /// Blocks until a stop is requested or @p until answers true, which is asked again after
    /// every wake().
    template <typename Condition>
    void waitForStop(Condition until) const
    {
        std::unique_lock lock(m_state->mutex);
        m_state->changed.wait(lock, [&] { return m_state->isRequested || until(); });
    }
    /// Blocks for @p time or until @p until answers true, stop or not.
    template <typename Condition>
    void waitFor(std::chrono::milliseconds time, Condition until) const
    {
        std::unique_lock lock(m_state->mutex);
        m_state->changed.wait_for(lock, time, until);
    }
    /// Has the waiting conditions asked again.
    void wake() const
    {
        // What changed before this is seen by whoever is between asking and waiting.
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

/// The side that asks for the end.
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
