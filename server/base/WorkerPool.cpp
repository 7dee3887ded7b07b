#include "base/WorkerPool.h"

namespace quellora::server {

WorkerPool::WorkerPool(std::size_t threads, std::size_t longestQueue) : m_longestQueue(longestQueue)
{
    for (std::size_t i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { work(); });
}

WorkerPool::~WorkerPool()
{
    stop();
}

void WorkerPool::stop()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    m_changed.notify_all();
    for (std::thread &thread : m_threads) {
        if (thread.joinable())
            thread.join();
    }
}

bool WorkerPool::post(Job job)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_isStopping || m_jobs.size() >= m_longestQueue)
            return false;
        m_jobs.push_back(std::move(job));
    }
    m_changed.notify_one();
    return true;
}

void WorkerPool::postAlways(Job job)
{
    {
        const std::lock_guard lock(m_mutex);
        if (!m_isStopping) {
            m_jobs.push_back(std::move(job));
            job = nullptr;
        }
    }
    if (job)
        job();
    else
        m_changed.notify_one();
}

std::size_t WorkerPool::waiting() const
{
    const std::lock_guard lock(m_mutex);
    return m_jobs.size();
}

void WorkerPool::work()
{
    std::unique_lock lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return m_isStopping || !m_jobs.empty(); });
        if (m_jobs.empty())
            return;
        Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        job();
        job = nullptr;
        lock.lock();
    }
}

} // namespace quellora::server
