#pragma once

#include "history/CaptureSessionStore.h"
#include "history/ThreadSummary.h"

#include <QByteArray>

#include <memory>

namespace quellora {

/// Reads what a list of stored threads shows of one, fast enough for many thousands: no image is
/// opened, only its presence is looked at, and of a description only what the list needs is taken
/// out.
///
/// Blocking, for a worker thread; one call at a time, because the reader keeps its memory between
/// threads.
class ThreadSummaryReader
{
public:
    /// Descriptions beyond this many bytes are skipped.
    static constexpr qint64 largestDescription = 64 * 1024 * 1024;

    /// @param sessionsRoot folder of all threads
    explicit ThreadSummaryReader(const QString &sessionsRoot);
    ~ThreadSummaryReader();
    ThreadSummaryReader(const ThreadSummaryReader &) = delete;
    ThreadSummaryReader &operator=(const ThreadSummaryReader &) = delete;

    /// One thread, or why it is left out: a thread that could not be loaded is not listed.
    tl::expected<ThreadSummary, QString> read(const QUuid &id);

    /// The folder of a thread, in the file system's encoding.
    static QByteArray folderOf(const QByteArray &root, const QUuid &id);

private:
    struct Memory;

    tl::expected<ThreadSummary, QString> readDescription(const QUuid &id, const QByteArray &folder);

    QByteArray m_root;
    std::unique_ptr<Memory> m_memory;
};

} // namespace quellora
