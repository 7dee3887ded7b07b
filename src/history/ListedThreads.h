#pragma once

#include "history/ThreadSummary.h"

#include <QHash>
#include <QList>
#include <QSet>

#include <optional>

namespace quellora {

/// The displayed list of stored threads, newest first. A reload is merged row by row instead of
/// replacing the list, so that views keep their scroll position and selection. Threads that the
/// reload has not reached stay listed until it ends.
class ListedThreads
{
public:
    /// A change of @c count rows from @c first on.
    struct Change
    {
        enum class Kind { Inserted, Removed, Changed };

        Kind kind = Kind::Changed;
        qsizetype first = 0;
        qsizetype count = 1;

        bool operator==(const Change &) const = default;
    };

    const QList<ThreadSummary> &threads() const { return m_threads; }
    /// -1 if the thread is not in the list.
    qsizetype positionOf(const QUuid &id) const;

    void beginReading();
    /// Adds a batch of the reload, newest first; applyNext() merges it.
    void add(const QList<ThreadSummary> &threads);
    /// All batches have been added; applyNext() then removes the threads that none contained.
    void endReading();
    bool isComplete() const { return m_isComplete; }
    /// Cancels the reload; changes already applied remain.
    void abandonReading();
    /// Applies the next pending change and returns it; nullopt if there is none.
    std::optional<Change> applyNext();

    /// Leaves threads out of the list, also of reloads, until show(). Returns the former position
    /// if it is a single thread and was listed, otherwise -1.
    qsizetype hide(const QList<QUuid> &ids);
    /// Lists a hidden thread again, as it was; returns its position. A running reload must be begun
    /// again afterwards, because it may have passed the thread.
    qsizetype show(const ThreadSummary &thread);
    /// Hidden threads are listed again by the next reload.
    void show(const QList<QUuid> &ids);
    /// Hidden threads have been deleted; the running reload may still deliver them.
    void forgetHidden(const QList<QUuid> &ids);
    bool isHidden(const QUuid &id) const { return m_hidden.contains(id); }
    /// Sets a title, which also overrides the one read by the running reload. Returns the thread's
    /// position or -1.
    qsizetype setTitle(const QUuid &id, const std::optional<QString> &title);
    void clear();

private:
    bool isLeftOut(const QUuid &id) const
    {
        return m_hidden.contains(id) || m_removed.contains(id);
    }
    std::optional<Change> applyIncoming();
    std::optional<Change> updateKnown(ThreadSummary thread);
    std::optional<Change> insertRun();
    std::optional<Change> removeStale();
    ThreadSummary incoming(qsizetype at) const;
    qsizetype lowerBound(const ThreadSummary &thread) const;

    QList<ThreadSummary> m_threads;
    /// Threads read from disk; those before m_next are already merged.
    QList<ThreadSummary> m_incoming;
    qsizetype m_next = 0;
    bool m_isComplete = false;
    /// Threads listed before that the reload has not reached, with the time they are sorted by.
    QHash<QUuid, QDateTime> m_stale;
    /// Positions from here on have been searched for stale threads.
    qsizetype m_sweepEnd = 0;
    /// Threads whose deletion can be undone or is under way.
    QSet<QUuid> m_hidden;
    /// Threads deleted during the running reload.
    QSet<QUuid> m_removed;
    QHash<QUuid, std::optional<QString>> m_titles;
};

} // namespace quellora
