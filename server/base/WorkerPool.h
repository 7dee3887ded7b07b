#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace quellora::server {

/// Runs jobs that may block, on a fixed number of threads, in the order in which they arrive. At
/// most a fixed number of jobs waits. Thread-safe.
class WorkerPool
{
public:
    using Job = std::function<void()>;

    /// @p longestQueue: how many jobs may wait for a thread.
    WorkerPool(std::size_t threads, std::size_t longestQueue);
    /// Runs the jobs that wait and returns when all have ended.
    ~WorkerPool();
    WorkerPool(const WorkerPool &) = delete;
    WorkerPool &operator=(const WorkerPool &) = delete;

    /// Runs @p job. False, and nothing happens, when too many jobs wait.
    [[nodiscard]] bool post(Job job);
    /// Runs @p job however many wait. For work that cannot be refused and whose amount is limited
    /// elsewhere, such as counting the tokens of answers that have ended.
    void postAlways(Job job);
    /// How many jobs wait for a thread.
    std::size_t waiting() const;
    /// Like the destructor. Jobs that are posted afterwards run at once, in the posting thread.
    void stop();

private:
    void work();

    const std::size_t m_longestQueue;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;
    bool m_isStopping = false;
    std::vector<std::thread> m_threads;
};

} // namespace quellora::server
