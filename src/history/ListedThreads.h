#pragma once

#include "history/ThreadSummary.h"

#include <QHash>
#include <QList>
#include <QSet>

#include <optional>

namespace quellora {

/// The list of stored threads on show, newest first, and how a new reading of the disk changes it:
/// row by row instead of all at once, so that whoever looks at it keeps their place. What the
/// reading has not come to yet stays until its end.
class ListedThreads
{
public:
    /// What happened to the rows from @c first on.
    struct Change
    {
        enum class Kind { Inserted, Removed, Changed };

        Kind kind = Kind::Changed;
        qsizetype first = 0;
        qsizetype count = 1;

        bool operator==(const Change &) const = default;
    };

    const QList<ThreadSummary> &threads() const { return m_threads; }
    /// -1 for a thread that is not in the list.
    qsizetype positionOf(const QUuid &id) const;

    void beginReading();
    /// A part of the reading, newest first; takes effect with applyNext().
    void add(const QList<ThreadSummary> &threads);
    /// All parts have been added: what none of them held goes, with applyNext().
    void endReading();
    bool isComplete() const { return m_isComplete; }
    /// Forgets the reading; what it has changed stays changed.
    void abandonReading();
    /// Makes the next change; none when there is nothing to change at present.
    std::optional<Change> applyNext();

    /// The user removed this thread; the reading may have seen it before. Returns where it was.
    qsizetype remove(const QUuid &id);
    /// The user changed its title, likewise. Returns where it is.
    qsizetype setTitle(const QUuid &id, const std::optional<QString> &title);
    void clear();

private:
    std::optional<Change> applyIncoming();
    std::optional<Change> updateKnown(ThreadSummary thread);
    std::optional<Change> insertRun();
    std::optional<Change> removeStale();
    ThreadSummary incoming(qsizetype at) const;
    qsizetype lowerBound(const ThreadSummary &thread) const;

    QList<ThreadSummary> m_threads;
    /// Read and not yet in the list; everything before m_next is.
    QList<ThreadSummary> m_incoming;
    qsizetype m_next = 0;
    bool m_isComplete = false;
    /// Threads of earlier readings that this one has not come to, with the time they are sorted by.
    QHash<QUuid, QDateTime> m_stale;
    /// Everything from here on has been searched for stale threads.
    qsizetype m_swept = 0;
    QSet<QUuid> m_removed;
    QHash<QUuid, std::optional<QString>> m_titles;
};

} // namespace quellora
