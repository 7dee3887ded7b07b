#pragma once

#include "base/Log.h"

#include <QStringList>

namespace quellora {

/// Captures all log messages during its lifetime. At most one instance at a time; main thread only.
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
