#pragma once

#include "history/CaptureSessionStore.h"
#include "history/ThreadHit.h"
#include "history/ThreadSummary.h"

#include <QFuture>
#include <QLocale>
#include <QSet>

namespace quellora {

/// A stored thread omitted from a list, and the reason.
struct SkippedThread
{
    QUuid id;
    QString reason;

    bool operator==(const SkippedThread &) const = default;
};

/// One batch of the list of stored threads.
struct ThreadBatch
{
    /// Newest first.
    QList<ThreadSummary> threads;
    QList<SkippedThread> skipped;
    /// Total number of threads on disk, the same in every batch.
    qsizetype total = 0;
};

/// A text to look for in the notes, questions and answers of threads.
struct ThreadQuery
{
    /// Not blank.
    QString text;
    /// Decides on the lower case of letters.
    QLocale locale;
    /// The threads to search, in the order in which hits are wanted.
    QList<QUuid> threads;
};

/// What became of threads that were to be removed from the disk.
struct RemovedThreads
{
    QList<QUuid> removed;
    /// Why the others are still there, each with its thread.
    QList<StoreError> failed;
};

/// A stored thread and the space it takes.
struct MeasuredThread
{
    QUuid id;
    /// Size of its files in bytes.
    qint64 bytes = 0;
    /// Nothing for a thread that cannot be read.
    std::optional<QDateTime> updatedAt;
};

/// Lists, searches, measures, loads, renames and deletes the stored threads.
///
/// Called on the main thread; disk access happens on a worker. Operations run in call order and
/// after the saves requested before them.
class ThreadLibrary
{
public:
    template <typename T>
    using Result = CaptureSessionStore::Result<T>;

    virtual ~ThreadLibrary() = default;

    /// All threads in batches, roughly newest first; a single error if the folder cannot be read.
    /// Cancelling the future stops the reading.
    virtual QFuture<Result<ThreadBatch>> list() = 0;
    /// The first occurrence in each thread that has one, in batches roughly in the query's order.
    /// Reads the files as they are and skips those that cannot be read; does not wait for saves.
    /// Cancelling the future stops the search.
    virtual QFuture<ThreadHits> search(const ThreadQuery &query) = 0;
    virtual QFuture<Result<CaptureSession>> load(const QUuid &id) = 0;
    /// All threads, also those that cannot be read. Folders that are links are none.
    virtual QFuture<Result<QList<MeasuredThread>>> measure() = 0;
    /// Removes threads in one go; an unknown one counts as removed.
    virtual QFuture<RemovedThreads> remove(const QList<QUuid> &ids) = 0;
    /// Removes, in one go, the threads that were last updated before @p limit except those in
    /// @p kept. What cannot be read stays.
    virtual QFuture<Result<RemovedThreads>> removeOlder(const QDateTime &limit,
                                                        const QSet<QUuid> &kept) = 0;
    /// Changes only the custom title; nullopt removes it.
    virtual QFuture<Result<void>> updateTitle(const QUuid &id,
                                              const std::optional<QString> &customTitle) = 0;
};

} // namespace quellora
