#pragma once

#include "base/Settings.h"
#include "history/HistoryController.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <optional>

namespace quellora {

/// The time of day, and a clock that nobody sets.
struct RetentionClocks
{
    std::function<QDateTime()> time = [] { return QDateTime::currentDateTimeUtc(); };
    std::function<std::chrono::steady_clock::time_point()> steady = &std::chrono::steady_clock::now;
};

/// Deletes stored threads that have not changed for as many days as the user has set; without that
/// setting it does nothing and has no timer. Looks when it is created, when the setting changes and
/// every hour. Threads in use stay. Main thread only; the disk is read on the library's worker.
///
/// A clock that has been set since the last look makes threads seem old that are not. Then nothing
/// is deleted until the next look finds it running steadily.
class ThreadRetention : public QObject
{
    Q_OBJECT
public:
    static constexpr std::chrono::hours interval{1};
    static constexpr int fewestDays = 1;
    static constexpr int mostDays = 3650;

    /// All borrowed.
    ThreadRetention(const Settings &settings, ThreadLibrary &library, HistoryController &history,
                    RetentionClocks clocks = {}, QObject *parent = nullptr);

    /// The number of days that a text names; nothing for another text or a number out of range.
    static std::optional<int> daysIn(const QString &text);
    /// Deletes what is too old now; called by the object's own timer.
    void look();

private:
    struct Look
    {
        QDateTime time;
        std::chrono::steady_clock::time_point steady;
    };

    void start();
    /// Whether the clock has run steadily since the last look.
    bool isClockSteady(const Look &now) const;
    void removed(const ThreadLibrary::Result<RemovedThreads> &outcome);

    const Settings &m_settings;
    ThreadLibrary &m_library;
    HistoryController &m_history;
    RetentionClocks m_clocks;
    QTimer m_timer;
    std::optional<Look> m_lastLook;
};

} // namespace quellora
