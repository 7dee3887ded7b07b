#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace quellora {

/// The way out when the process is ended from within, past every destructor.
///
/// When the display goes away, the libraries that talk to it call exit(), each on the thread that
/// notices, often on several at once and while the other threads go on. From the first such call
/// on, this stores what has to be stored and then ends the process as it stands, with a status of
/// failure: no destructor of a library runs beside a thread that still uses it. One at a time.
class EmergencyExit
{
public:
    /// To be made on the main thread.
    /// @param finish stores everything; called at most once, on the main thread unless that hangs
    /// @param patience how long another thread waits for the main thread
    explicit EmergencyExit(std::function<void()> finish,
                           std::chrono::milliseconds patience = std::chrono::seconds(3));
    /// From now on exit() is an ordinary exit.
    ~EmergencyExit();

    EmergencyExit(const EmergencyExit &) = delete;
    EmergencyExit &operator=(const EmergencyExit &) = delete;

    /// Comes ahead of what libraries have registered to be run at exit since.
    void comeFirst();
    /// Ends the process. Any thread; does not return.
    [[noreturn]] static void leave();

private:
    static void onExit();
    [[noreturn]] void finishAndEnd();

    std::function<void()> m_finish;
    std::chrono::milliseconds m_patience;
    std::thread::id m_mainThread;
    std::atomic<bool> m_isFinishing = false;
};

} // namespace quellora
