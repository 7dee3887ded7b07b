#pragma once

#include "history/CaptureSessionStore.h"
#include "history/ThreadSummary.h"

#include <QFuture>

namespace quellora {

/// A stored thread that a list leaves out, and why.
struct SkippedThread
{
    QUuid id;
    QString reason;

    bool operator==(const SkippedThread &) const = default;
};

/// A part of the list of stored threads.
struct ThreadBatch
{
    /// Newest first.
    QList<ThreadSummary> threads;
    QList<SkippedThread> skipped;
    /// Threads on disk in all, the same in every batch.
    qsizetype total = 0;
};

/// The stored threads, for whoever lists, opens, renames or deletes them.
///
/// Called on the main thread; the disk is used on a worker. Whatever is asked for happens in the
/// order of the calls and after the saves asked for before it.
class ThreadLibrary
{
public:
    template <typename T>
    using Result = CaptureSessionStore::Result<T>;

    virtual ~ThreadLibrary() = default;

    /// All threads in batches, about newest first; a single error when the folder cannot be read.
    /// Cancelling the future ends the reading.
    virtual QFuture<Result<ThreadBatch>> list() = 0;
    virtual QFuture<Result<CaptureSession>> load(const QUuid &id) = 0;
    /// Removing an unknown thread is a success.
    virtual QFuture<Result<void>> remove(const QUuid &id) = 0;
    /// Sets or removes the custom title and nothing else.
    virtual QFuture<Result<void>> updateTitle(const QUuid &id,
                                              const std::optional<QString> &customTitle) = 0;
};

} // namespace quellora
