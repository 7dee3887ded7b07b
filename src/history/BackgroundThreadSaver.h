#pragma once

#include "history/CaptureSessionStore.h"
#include "history/ThreadController.h"

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
/// thread takes its place: each save writes the thread whole. Failures come back as log lines with
/// the caller's prefix, and the thread's next change tries again. Main thread only.
class BackgroundThreadSaver : public ThreadSaver
{
public:
    /// @param store borrowed
    explicit BackgroundThreadSaver(const CaptureSessionStore &store);
    /// Waits until everything is stored.
    ~BackgroundThreadSaver() override;

    void save(const CaptureSession &session, const QString &failurePrefix) override;
    /// Does @p work on the worker after the saves so far and before later ones.
    void runAfterSaves(std::function<void()> work);
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
    };

    void startNext();
    void finish(const std::shared_ptr<Job> &job);

    const CaptureSessionStore &m_store;
    QList<std::shared_ptr<Job>> m_waiting;
    std::shared_ptr<Job> m_running;
    /// Receiver of the worker's reports.
    QObject m_reports;
    QThreadPool m_worker;
};

} // namespace quellora
