#pragma once

#include "history/ThreadLibrary.h"

#include <QPromise>

#include <memory>

namespace quellora {

/// Reads what a list of stored threads shows, fast enough for many thousands: no image is read,
/// only its presence is looked at, and of a description only what the list needs is taken out.
///
/// Blocking, for a worker thread; one call at a time, because the reader keeps its memory between
/// threads.
class ThreadSummaryReader
{
public:
    /// Descriptions beyond this many bytes are skipped.
    static constexpr qint64 largestDescription = 64 * 1024 * 1024;

    /// @param sessionsRoot folder of all threads
    explicit ThreadSummaryReader(QString sessionsRoot);
    ~ThreadSummaryReader();
    ThreadSummaryReader(const ThreadSummaryReader &) = delete;
    ThreadSummaryReader &operator=(const ThreadSummaryReader &) = delete;

    /// One thread, or why it is left out: a thread that could not be loaded is not listed.
    tl::expected<ThreadSummary, QString> read(const QUuid &id);

    /// Adds all threads of @p store to @p promise in batches, those whose description changed last
    /// first, or a single error when the folder cannot be read. Ends early when the promise's
    /// future is cancelled. Starting and finishing the promise is up to the caller.
    static void readAll(const CaptureSessionStore &store,
                        QPromise<ThreadLibrary::Result<ThreadBatch>> &promise,
                        qsizetype batchSize = 200);

private:
    struct Memory;

    tl::expected<ThreadSummary, QString> readDescription(const QUuid &id, const QString &folder);

    QString m_root;
    std::unique_ptr<Memory> m_memory;
};

} // namespace quellora
