#pragma once

#include "history/CaptureSessionStore.h"
#include "history/ThreadSummary.h"

#include <QByteArray>

#include <memory>

namespace quellora {

/// Reads the summaries of stored threads, fast enough for many thousands: images are only checked
/// for existence and only the listed fields of a description are extracted.
///
/// Blocking; for use on a worker. Not reentrant, because buffers are reused between calls.
class ThreadSummaryReader
{
public:
    /// Maximum size of a description in bytes; larger ones are skipped.
    static constexpr qint64 largestDescription = 64 * 1024 * 1024;

    /// @param sessionsRoot folder that contains the threads' folders
    explicit ThreadSummaryReader(const QString &sessionsRoot);
    ~ThreadSummaryReader();
    ThreadSummaryReader(const ThreadSummaryReader &) = delete;
    ThreadSummaryReader &operator=(const ThreadSummaryReader &) = delete;

    /// The summary, or why the thread is skipped. A thread that could not be loaded is not listed.
    tl::expected<ThreadSummary, QString> read(const QUuid &id);

    /// Path of a thread's folder in the file system's encoding.
    static QByteArray folderOf(const QByteArray &root, const QUuid &id);

private:
    struct Buffers;

    tl::expected<ThreadSummary, QString> readDescription(const QUuid &id, const QByteArray &folder);

    QByteArray m_root;
    std::unique_ptr<Buffers> m_buffers;
};

} // namespace quellora
