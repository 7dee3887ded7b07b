#include "http/RunningStreams.h"

namespace quellora::server {

RunningStreams::Place RunningStreams::acquire()
{
    const std::lock_guard lock(m_mutex);
    if (m_streams.size() >= m_most)
        return nullptr;
    const auto release = [this](Stream *stream) {
        {
            const std::lock_guard released(m_mutex);
            m_streams.erase(stream);
        }
        m_released.notify_all();
        delete stream;
    };
    Place place(new Stream, release);
    m_streams.insert(place.get());
    return place;
}

void RunningStreams::add(const Place &place, Stream stream)
{
    const std::lock_guard lock(m_mutex);
    *place = std::move(stream);
}

std::vector<RunningStreams::Stream> RunningStreams::ofAccount(std::int64_t accountId) const
{
    const std::lock_guard lock(m_mutex);
    std::vector<Stream> found;
    for (const Stream *stream : m_streams) {
        if (stream->accountId == accountId)
            found.push_back(*stream);
    }
    return found;
}

bool RunningStreams::waitForNone(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(m_mutex);
    m_released.wait_for(lock, timeout, [this] { return m_streams.empty() || m_isInterrupted; });
    m_isInterrupted = false;
    return m_streams.empty();
}

void RunningStreams::interrupt()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isInterrupted = true;
    }
    m_released.notify_all();
}

} // namespace quellora::server
