#pragma once

#include "base/Log.h"

#include <QStringList>

#include <mutex>

namespace quellora {

/// Captures all log messages during its lifetime, from any thread. At most one instance at a time;
/// use it on the main thread, and read the lines of work in other threads once that is done.
class LogCapture
{
public:
    LogCapture()
    {
        Log::setSinkForTesting([this](const QString &message) {
            const std::scoped_lock lock(m_mutex);
            lines.append(message);
        });
    }
    ~LogCapture() { Log::setSinkForTesting({}); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    bool contains(const QString &line) const { return lines.contains(line); }
    void clear() { lines.clear(); }

    QStringList lines;

private:
    std::mutex m_mutex;
};

} // namespace quellora
