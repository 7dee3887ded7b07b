#include "base/Log.h"

#include <cstdio>
#include <utility>

namespace quellora {

namespace {

std::function<void(const QString &)> &sinkInPlace()
{
    static std::function<void(const QString &)> sink;
    return sink;
}

} // namespace

QString Log::formatLine(const QDateTime &localTime, const QString &message)
{
    return QLatin1Char('[') + localTime.toString(QStringLiteral("HH:mm:ss.zzz")) +
           QStringLiteral("] ") + message;
}

void Log::event(const QString &message)
{
    if (const auto &sink = sinkInPlace()) {
        sink(message);
        return;
    }
    QByteArray line = formatLine(QDateTime::currentDateTime(), message).toUtf8();
    line.append('\n');
    // One call per line: stdio locks the stream for its duration, so lines never interleave.
    static_cast<void>(std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout));
}

void Log::silence()
{
    sinkInPlace() = [](const QString &) {};
}

void Log::setSinkForTesting(std::function<void(const QString &)> sink)
{
    sinkInPlace() = std::move(sink);
}

} // namespace quellora
