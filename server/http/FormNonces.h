#pragma once

#include "base/Clock.h"
#include "base/Secrets.h"

#include <map>
#include <mutex>
#include <string>

namespace quellora::server {

/// Single-use tokens that prove that a form was served by this server. Thread-safe. Each is valid
/// for ten minutes; only the newest are kept.
class FormNonces
{
public:
    explicit FormNonces(const Clock &clock) : m_clock(clock) {}

    std::string issue()
    {
        const std::lock_guard lock(m_mutex);
        const TimePoint now = m_clock.now();
        std::erase_if(m_expiry, [now](const auto &entry) { return entry.second <= now; });
        while (m_expiry.size() >= most) {
            auto oldest = m_expiry.begin();
            for (auto entry = m_expiry.begin(); entry != m_expiry.end(); ++entry) {
                if (entry->second < oldest->second)
                    oldest = entry;
            }
            m_expiry.erase(oldest);
        }
        std::string nonce = randomToken();
        m_expiry[nonce] = now + std::chrono::minutes(10);
        return nonce;
    }

    /// Invalidates @p nonce; false when it is unknown, used or expired.
    bool consume(const std::string &nonce)
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_expiry.find(nonce);
        if (found == m_expiry.end())
            return false;
        const bool fresh = found->second > m_clock.now();
        m_expiry.erase(found);
        return fresh;
    }

private:
    static constexpr std::size_t most = 256;

    const Clock &m_clock;
    std::mutex m_mutex;
    std::map<std::string, TimePoint> m_expiry;
};

} // namespace quellora::server
