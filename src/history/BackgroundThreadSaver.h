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

/// Saves threads through the store on one worker, so that the main thread never waits for the disk.
///
/// Threads are saved in the order of the requests. While a save waits, a newer state of the same
/// thread takes its place: each save writes the thread whole. A failure is logged with the caller's
/// prefix and told as the thread's state; what could not be saved is kept and tried again with the
/// thread's next change, as soon as another thread could be saved, and by retryFailed(). Main
/// thread only.
class BackgroundThreadSaver : public ThreadSaver
{
public:
    /// @param store borrowed
    explicit BackgroundThreadSaver(const CaptureSessionStore &store);
    /// Waits until everything is stored.
    ~BackgroundThreadSaver() override;

    void save(const CaptureSession &session, const QString &failurePrefix) override;
    /// Does @p work on the worker after the saves so far and before later ones, then @p after on
    /// the main thread.
    void runAfterSaves(std::function<void()> work, std::function<void()> after = {});
    /// Tries once more to save whatever could not be saved.
    void retryFailed();
    /// The thread is no longer on the disk and is not to be written there again.
    void forget(const QUuid &threadId);
    /// Blocks until every save so far has been done and its failure logged.
    void flush();

private:
    struct Job
    {
        /// The thread to save, or
        std::optional<CaptureSession> session;
        QString failurePrefix;
        CaptureSessionStore::Result<void> result;
        /// something else to do.
        std::function<void()> work;
        /// What follows the work.
        std::function<void()> after;
    };

    void startNext();
    void finish(const std::shared_ptr<Job> &job);
    void saved(const Job &job);
    bool isWaiting(const QUuid &threadId) const;

    const CaptureSessionStore &m_store;
    QList<std::shared_ptr<Job>> m_waiting;
    std::shared_ptr<Job> m_running;
    /// The last save of each thread that could not be saved.
    QHash<QUuid, std::shared_ptr<Job>> m_failed;
    /// Receiver of the worker's reports.
    QObject m_reports;
    QThreadPool m_worker;
};

} // namespace quellora
