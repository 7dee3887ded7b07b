#pragma once

#include "history/CaptureSessionStore.h"
#include "history/ThreadSaver.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QThreadPool>

#include <functional>
#include <memory>
#include <optional>

namespace quellora {

/// Saves threads through the store on one worker, so that the main thread never blocks on the disk.
///
/// Saves run in request order. Since each save writes the whole thread, a newer save of the same
/// thread replaces a queued one in its position. A failure is logged with the caller's prefix and
/// reported as the thread's state; the failed save is kept and retried with the thread's next
/// change, after the next successful save of any thread, and by retryFailed(). Main thread only.
class BackgroundThreadSaver : public ThreadSaver
{
public:
    /// @param store borrowed
    explicit BackgroundThreadSaver(const CaptureSessionStore &store);
    /// Blocks until all queued jobs are done.
    ~BackgroundThreadSaver() override;

    void save(const CaptureSession &session, const QString &failurePrefix) override;
    /// Runs @p work on the worker after the saves queued so far and before later ones, then
    /// @p after on the main thread.
    void runAfterSaves(std::function<void()> work, std::function<void()> after = {});
    /// Queues all failed saves again.
    void retryFailed();
    /// Drops the failed save and the state of a thread that has been deleted from the disk.
    void forget(const QUuid &threadId);
    /// Blocks until all queued jobs are done and their failures logged.
    void flush();

private:
    struct Job
    {
        /// The thread to save; without one the job runs @c work instead.
        std::optional<CaptureSession> session;
        QString failurePrefix;
        CaptureSessionStore::Result<void> result;
        /// Runs on the worker.
        std::function<void()> work;
        /// Runs on the main thread after @c work; may be empty.
        std::function<void()> after;
    };

    void startNext();
    void finish(const std::shared_ptr<Job> &job);
    void finishSave(const Job &job);
    bool isQueued(const QUuid &threadId) const;

    const CaptureSessionStore &m_store;
    QList<std::shared_ptr<Job>> m_queue;
    std::shared_ptr<Job> m_running;
    /// The latest failed save of each thread.
    QHash<QUuid, std::shared_ptr<Job>> m_failed;
    /// Context object for the worker's queued calls; lives on the main thread.
    QObject m_receiver;
    QThreadPool m_worker;
};

} // namespace quellora
