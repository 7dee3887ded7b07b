#pragma once

#include "base/Log.h"

#include <QStringList>

namespace quellora {

/// Collects every log message while it lives. One at a time, main thread.
class LogCapture
{
public:
    LogCapture()
    {
        Log::setSinkForTesting([this](const QString &message) { lines.append(message); });
    }
    ~LogCapture() { Log::setSinkForTesting({}); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    bool contains(const QString &line) const { return lines.contains(line); }
    void clear() { lines.clear(); }

    QStringList lines;
};

} // namespace quellora
