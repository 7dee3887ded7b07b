#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace quellora {

/// Saves data and ends the process when exit() is called while the application is running.
///
/// When the connection to the display is lost, its client libraries call exit() on whichever thread
/// notices, often on several at once while other threads keep running. On the first such call, this
/// runs a callback that saves the data and then calls _Exit() with EXIT_FAILURE, so that no
/// library's destructor runs while another thread still uses the library. Only one instance may
/// exist at a time.
class EmergencyExit
{
public:
    /// Must be constructed on the main thread. Calls registerExitHandlers().
    /// @param finish saves all data; called at most once, on the main thread unless it is blocked
    /// @param timeout how long another thread waits for the main thread
    explicit EmergencyExit(std::function<void()> finish,
                           std::chrono::milliseconds timeout = std::chrono::seconds(3));
    /// Restores the ordinary behaviour of exit().
    ~EmergencyExit();

    EmergencyExit(const EmergencyExit &) = delete;
    EmergencyExit &operator=(const EmergencyExit &) = delete;

    /// Registers the exit handlers in place of those before, so that they run before atexit()
    /// handlers that libraries have registered since. However often it is called, it takes memory
    /// only when there are such. On the main thread.
    void registerExitHandlers();
    /// Runs the callback and ends the process. Thread-safe.
    [[noreturn]] static void exitNow();

private:
    static void onExit();
    [[noreturn]] void finishAndTerminate();

    std::function<void()> m_finish;
    std::chrono::milliseconds m_timeout;
    std::thread::id m_mainThread;
    std::atomic<bool> m_isFinishing = false;
};

} // namespace quellora
