#pragma once

#include "history/BackgroundThreadSaver.h"
#include "history/ThreadLibrary.h"

#include <QThreadPool>

namespace quellora {

/// ThreadLibrary over the store. Loading, renaming and deleting run in the saver's queue after
/// earlier saves; lists and sizes are then read on a separate worker, so that a long one does not
/// block it.
/// Searches have a worker of their own.
class StoredThreadLibrary : public ThreadLibrary
{
public:
    /// Both borrowed.
    StoredThreadLibrary(const CaptureSessionStore &store, BackgroundThreadSaver &saver);
    /// Cancels running lists and searches and blocks until all other work is done.
    ~StoredThreadLibrary() override;

    QFuture<Result<ThreadBatch>> list() override;
    QFuture<ThreadHits> search(const ThreadQuery &query) override;
    QFuture<Result<CaptureSession>> load(const QUuid &id) override;
    QFuture<Result<QList<MeasuredThread>>> measure() override;
    QFuture<RemovedThreads> remove(const QList<QUuid> &ids) override;
    QFuture<Result<RemovedThreads>> removeOlder(const QDateTime &limit,
                                                const QSet<QUuid> &kept) override;
    QFuture<Result<void>> updateTitle(const QUuid &id,
                                      const std::optional<QString> &customTitle) override;

private:
    /// Runs @p work in the saver's queue, then @p done with its result on the main thread.
    template <typename T>
    QFuture<T> afterSaves(std::function<T()> work, std::function<void(const T &)> done = {});
    /// Drops what the saver still holds of removed threads.
    void forget(const QList<QUuid> &ids);

    const CaptureSessionStore &m_store;
    BackgroundThreadSaver &m_saver;
    QList<QFuture<Result<ThreadBatch>>> m_lists;
    QList<QFuture<ThreadHits>> m_searches;
    QThreadPool m_readers;
    QThreadPool m_searchers;
};

} // namespace quellora
