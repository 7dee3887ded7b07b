#pragma once

#include "history/CaptureSessionStore.h"
#include "history/ThreadHit.h"
#include "history/ThreadSummary.h"

#include <QFuture>
#include <QLocale>

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

/// Lists, searches, loads, renames and deletes the stored threads.
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
    /// Succeeds for an unknown thread.
    virtual QFuture<Result<void>> remove(const QUuid &id) = 0;
    /// Changes only the custom title; nullopt removes it.
    virtual QFuture<Result<void>> updateTitle(const QUuid &id,
                                              const std::optional<QString> &customTitle) = 0;
};

} // namespace quellora
