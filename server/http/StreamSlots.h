#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

namespace quellora::server {

/// Limits the running answer streams per account and in total. Thread-safe.
class StreamSlots
{
public:
    StreamSlots(int perAccount, int total) : m_perAccount(perAccount), m_total(total) {}

    /// Released when the last copy is destroyed.
    using Slot = std::shared_ptr<void>;

    /// A slot, or null when the account or the server has reached its limit.
    Slot acquire(std::int64_t accountId)
    {
        const std::lock_guard lock(m_mutex);
        int &running = m_running[accountId];
        if (running >= m_perAccount || m_all >= m_total)
            return nullptr;
        ++running;
        ++m_all;
        return Slot(this, [accountId](void *slots) {
            static_cast<StreamSlots *>(slots)->release(accountId);
        });
    }

    /// Waits until no stream runs; false after @p timeout or interrupt().
    bool waitForNone(std::chrono::milliseconds timeout)
    {
        std::unique_lock lock(m_mutex);
        m_released.wait_for(lock, timeout, [this] { return m_all == 0 || m_isInterrupted; });
        m_isInterrupted = false;
        return m_all == 0;
    }

    /// Ends the running waitForNone(), else the next one.
    void interrupt()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_isInterrupted = true;
        }
        m_released.notify_all();
    }

private:
    void release(std::int64_t accountId)
    {
        {
            const std::lock_guard lock(m_mutex);
            --m_all;
            const auto entry = m_running.find(accountId);
            if (--entry->second == 0)
                m_running.erase(entry);
        }
        m_released.notify_all();
    }

    int m_perAccount;
    int m_total;
    int m_all = 0;
    bool m_isInterrupted = false;
    std::map<std::int64_t, int> m_running;
    std::mutex m_mutex;
    std::condition_variable m_released;
};

} // namespace quellora::server
