#include "sheets/settings/ThreadStorage.h"

#include "base/Log.h"
#include "base/WhenFinished.h"
#include "history/ThreadRetention.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace quellora {

ThreadStorage::ThreadStorage(Settings &settings, ThreadLibrary &library, HistoryController &history,
                             Vocabulary vocabulary, const QLocale &locale, Clock clock,
                             QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_library(library)
    , m_history(history)
    , m_vocabulary(std::move(vocabulary))
    , m_locale(locale)
    , m_clock(std::move(clock))
{
    connect(&m_settings, &Settings::keepThreadsDaysChanged, this, &ThreadStorage::showLimit);
    connect(&m_history, &HistoryController::deletionFailed, this, &ThreadStorage::setProblem);
    connect(&m_history, &HistoryController::storedThreadsChanged, this, [this] {
        Q_EMIT measured();
        if (m_isOpen && !m_question)
            measure({});
    });
    showLimit();
}

void ThreadStorage::setOpen(bool isOpen)
{
    m_isOpen = isOpen;
    cancel();
    // What is under way was asked for in an earlier visit.
    ++m_lastMeasurement;
    setProblem({});
    setDaysError({});
    if (isOpen)
        measure({});
}

void ThreadStorage::measure(std::function<void(const Threads &)> then)
{
    whenFinished(m_library.measure(), this,
                 [this, number = ++m_lastMeasurement,
                  then = std::move(then)](const ThreadLibrary::Result<Threads> &threads) {
                     if (number != m_lastMeasurement)
                         return;
                     m_threads = threads ? std::optional(*threads) : std::nullopt;
                     if (!threads) {
                         Log::event(QStringLiteral("[ThreadStorage] ERROR: Failed to measure "
                                                   "sessions: ") +
                                    threads.error().description());
                         setProblem(QStringLiteral("The saved threads can't be read."));
                     }
                     Q_EMIT measured();
                     if (threads && then)
                         then(listed());
                 });
}

/// The measured threads that are not about to be deleted anyway.
ThreadStorage::Threads ThreadStorage::listed() const
{
    Threads threads = m_threads.value_or(Threads());
    threads.removeIf(
        [this](const MeasuredThread &thread) { return m_history.isHidden(thread.id); });
    return threads;
}

QString ThreadStorage::sizeText(const Threads &threads) const
{
    const qint64 bytes = std::accumulate(
        threads.begin(), threads.end(), qint64(0),
        [](qint64 sum, const MeasuredThread &thread) { return sum + thread.bytes; });
    const QString count = threads.size() == 1
                              ? QStringLiteral("1 thread")
                              : m_locale.toString(threads.size()) + QStringLiteral(" threads");
    return count + QStringLiteral(", ") +
           m_locale.formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

QString ThreadStorage::space() const
{
    if (!m_threads)
        return {};
    const Threads threads = listed();
    return threads.isEmpty() ? QStringLiteral("No saved threads") : sizeText(threads);
}

bool ThreadStorage::hasThreads() const
{
    return !listed().isEmpty();
}

bool ThreadStorage::isLimited() const
{
    return ThreadRetention::daysIn(m_settings.keepThreadsDays()).has_value();
}

void ThreadStorage::showLimit()
{
    m_days = ThreadRetention::daysIn(m_settings.keepThreadsDays()).value_or(m_days);
    Q_EMIT limitChanged();
}

void ThreadStorage::setLimited(bool isLimited)
{
    setProblem({});
    if (isLimited)
        propose(m_days);
    else
        m_settings.setKeepThreadsDays({});
}

void ThreadStorage::commitDays(const QString &text)
{
    const auto days = ThreadRetention::daysIn(text);
    if (!days) {
        setDaysError(QStringLiteral("Enter a number of days from %1 to %2")
                         .arg(ThreadRetention::fewestDays)
                         .arg(m_locale.toString(ThreadRetention::mostDays)));
        return;
    }
    setDaysError({});
    setProblem({});
    if (*days == m_days) {
        // The view may show the same number written in another way.
        Q_EMIT limitChanged();
    } else if (!isLimited()) {
        m_days = *days;
        Q_EMIT limitChanged();
    } else if (*days > m_days) {
        store(*days);
    } else {
        propose(*days);
    }
}

void ThreadStorage::propose(int days)
{
    measure([this, days](Threads threads) {
        const QDateTime limit = m_clock().addDays(-days);
        const QSet<QUuid> inUse = m_history.threadsInUse();
        threads.removeIf([&](const MeasuredThread &thread) {
            return !thread.updatedAt || !(*thread.updatedAt < limit) || inUse.contains(thread.id);
        });
        if (threads.isEmpty()) {
            store(days);
            return;
        }
        ask(Question{QStringLiteral("Delete older threads?"),
                     sizeText(threads) +
                         QStringLiteral(", unchanged for more than %1, will be permanently removed "
                                        "from %2. This can't be undone.")
                             .arg(days == 1 ? QStringLiteral("1 day")
                                            : m_locale.toString(days) + QStringLiteral(" days"),
                                  m_vocabulary.computer),
                     [this, days] { store(days); }});
    });
}

void ThreadStorage::store(int days)
{
    m_settings.setKeepThreadsDays(QString::number(days));
}

void ThreadStorage::deleteAll()
{
    setProblem({});
    measure([this](const Threads &threads) {
        if (threads.isEmpty())
            return;
        QList<QUuid> ids;
        for (const MeasuredThread &thread : threads)
            ids.append(thread.id);
        ask(Question{
            QStringLiteral("Delete all threads?"),
            sizeText(threads) +
                QStringLiteral(", will be permanently removed from %1.").arg(m_vocabulary.computer),
            [this, ids] { m_history.deleteThreads(ids); }});
    });
}

void ThreadStorage::confirm()
{
    if (const auto question = std::exchange(m_question, std::nullopt)) {
        Q_EMIT questionChanged();
        question->confirmed();
    }
}

void ThreadStorage::cancel()
{
    if (!m_question)
        return;
    ask(std::nullopt);
    // The view shows the switch and the days as they are.
    Q_EMIT limitChanged();
}

void ThreadStorage::ask(const std::optional<Question> &question)
{
    m_question = question;
    Q_EMIT questionChanged();
}

void ThreadStorage::setProblem(const QString &problem)
{
    if (m_problem == problem)
        return;
    m_problem = problem;
    Q_EMIT problemChanged();
}

void ThreadStorage::setDaysError(const QString &error)
{
    if (m_daysError == error)
        return;
    m_daysError = error;
    Q_EMIT daysErrorChanged();
}

} // namespace quellora
