#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace boost::asio {
class io_context;
}

namespace quellora::server {

class Transfers;

/// One thread that runs callbacks of sockets and timers one after the other. Nothing on it may
/// block.
class EventLoop
{
public:
    EventLoop();
    /// Like stop().
    ~EventLoop();
    EventLoop(const EventLoop &) = delete;
    EventLoop &operator=(const EventLoop &) = delete;

    /// Runs @p task on the loop soon. From any thread.
    void post(std::function<void()> task);
    /// Runs @p task on the loop and returns afterwards. From any thread but the loop's.
    void postAndWait(const std::function<void()> &task);
    boost::asio::io_context &context() { return *m_context; }
    /// The transfers on this loop. To be used on the loop only.
    Transfers &transfers() { return *m_transfers; }
    /// Ends the thread. Callbacks that have not run are destroyed with this object.
    void stop();

private:
    std::unique_ptr<boost::asio::io_context> m_context;
    std::unique_ptr<Transfers> m_transfers;
    std::thread m_thread;
};

/// The loops of the program.
class EventLoops
{
public:
    explicit EventLoops(std::size_t count);

    /// The loops in turn. From any thread.
    EventLoop &next();
    std::size_t count() const { return m_loops.size(); }
    EventLoop &at(std::size_t index) { return *m_loops[index]; }
    void stop();

private:
    std::vector<std::unique_ptr<EventLoop>> m_loops;
    std::atomic<std::size_t> m_next{0};
};

} // namespace quellora::server
