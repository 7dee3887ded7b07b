#include "history/ThreadRetention.h"

#include "base/Log.h"
#include "base/WhenFinished.h"

#include <utility>

namespace quellora {

namespace {

/// A clock that is corrected in small steps is still steady.
constexpr std::chrono::minutes tolerance{5};

} // namespace

ThreadRetention::ThreadRetention(const Settings &settings, ThreadLibrary &library,
                                 HistoryController &history, RetentionClocks clocks,
                                 QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_library(library)
    , m_history(history)
    , m_clocks(std::move(clocks))
{
    m_timer.setTimerType(Qt::VeryCoarseTimer);
    m_timer.setInterval(interval);
    connect(&m_timer, &QTimer::timeout, this, &ThreadRetention::look);
    connect(&m_settings, &Settings::keepThreadsDaysChanged, this, &ThreadRetention::start);
    start();
}

std::optional<int> ThreadRetention::daysIn(const QString &text)
{
    bool isNumber = false;
    const int days = text.trimmed().toInt(&isNumber);
    return isNumber && days >= fewestDays && days <= mostDays ? std::optional(days) : std::nullopt;
}

void ThreadRetention::start()
{
    // Who has just set the days knows what they delete now.
    m_lastLook.reset();
    if (!daysIn(m_settings.keepThreadsDays())) {
        m_timer.stop();
        return;
    }
    m_timer.start();
    look();
}

bool ThreadRetention::isClockSteady(const Look &now) const
{
    if (!m_lastLook)
        return true;
    const std::chrono::milliseconds shown{m_lastLook->time.msecsTo(now.time)};
    const auto drift = shown - (now.steady - m_lastLook->steady);
    return drift > -tolerance && drift < tolerance;
}

void ThreadRetention::look()
{
    const auto days = daysIn(m_settings.keepThreadsDays());
    if (!days)
        return;
    const Look now{m_clocks.time(), m_clocks.steady()};
    const bool isSteady = isClockSteady(now);
    m_lastLook = now;
    if (!isSteady) {
        Log::event(QStringLiteral("[ThreadRetention] The clock was set or the machine slept; old "
                                  "threads stay for another hour"));
        return;
    }
    whenFinished(
        m_library.removeOlder(now.time.addDays(-*days), m_history.threadsInUse()), this,
        [this](const ThreadLibrary::Result<RemovedThreads> &outcome) { removed(outcome); });
}

void ThreadRetention::removed(const ThreadLibrary::Result<RemovedThreads> &outcome)
{
    if (!outcome) {
        Log::event(QStringLiteral("[ThreadRetention] ERROR: Failed to look for old threads: ") +
                   outcome.error().description());
        return;
    }
    if (!outcome->failed.isEmpty())
        Log::event(QStringLiteral("[ThreadRetention] ERROR: Failed to delete %1 old session(s), "
                                  "the first: %2")
                       .arg(outcome->failed.size())
                       .arg(outcome->failed.constFirst().description()));
    if (outcome->removed.isEmpty())
        return;
    Log::event(
        QStringLiteral("[ThreadRetention] %1 old session(s) deleted").arg(outcome->removed.size()));
    m_history.refresh();
}

} // namespace quellora
