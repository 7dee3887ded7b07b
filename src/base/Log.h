#pragma once

#include <QDateTime>
#include <QString>

#include <functional>

namespace quellora {

/// The program's diagnostic log on standard output, one line per call.
///
/// A line reads "[HH:mm:ss.SSS] message" in local time and is written with a single call, so lines
/// of different threads never interleave. Secrets, prompts and answers are never logged.
class Log
{
public:
    /// Writes one line now. Callable from any thread.
    static void event(const QString &message);

    /// Writes nothing from now on: for commands whose standard output is theirs. Call first.
    static void silence();

    /// The text of a log line, without the line feed.
    static QString formatLine(const QDateTime &localTime, const QString &message);

    /// Sends every later message (without its time) to @p sink instead of standard output; an
    /// empty function restores standard output. For tests; call it while no other thread logs.
    static void setSinkForTesting(std::function<void(const QString &)> sink);
};

} // namespace quellora
