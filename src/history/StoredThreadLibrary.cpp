#include "history/StoredThreadLibrary.h"

#include "history/ThreadListing.h"
#include "history/ThreadSearch.h"

#include <QPromise>

#include <memory>
#include <utility>

namespace quellora {

StoredThreadLibrary::StoredThreadLibrary(const CaptureSessionStore &store,
                                         BackgroundThreadSaver &saver)
    : m_store(store), m_saver(saver)
{
    m_readers.setMaxThreadCount(1);
    m_searchers.setMaxThreadCount(1);
}

StoredThreadLibrary::~StoredThreadLibrary()
{
    for (auto &list : m_lists)
        list.cancel();
    for (auto &search : m_searches)
        search.cancel();
    // Queued jobs refer to this object.
    m_saver.flush();
    m_readers.waitForDone();
    m_searchers.waitForDone();
}

template <typename T>
QFuture<StoredThreadLibrary::Result<T>>
StoredThreadLibrary::afterSaves(std::function<Result<T>()> work)
{
    auto promise = std::make_shared<QPromise<Result<T>>>();
    promise->start();
    // A failed save may belong to the requested thread, so retry it first.
    m_saver.retryFailed();
    m_saver.runAfterSaves([promise, work = std::move(work)] {
        promise->addResult(work());
        promise->finish();
    });
    return promise->future();
}

QFuture<StoredThreadLibrary::Result<ThreadBatch>> StoredThreadLibrary::list()
{
    auto promise = std::make_shared<QPromise<Result<ThreadBatch>>>();
    promise->start();
    m_lists.removeIf([](const auto &list) { return list.isFinished(); });
    m_lists.append(promise->future());
    m_saver.retryFailed();
    m_saver.runAfterSaves([this, promise] {
        m_readers.start([this, promise] {
            ThreadListing::read(m_store, *promise);
            promise->finish();
        });
    });
    return promise->future();
}

QFuture<ThreadHits> StoredThreadLibrary::search(const ThreadQuery &query)
{
    auto promise = std::make_shared<QPromise<ThreadHits>>();
    promise->start();
    m_searches.removeIf([](const auto &search) { return search.isFinished(); });
    m_searches.append(promise->future());
    m_searchers.start([this, promise, query] {
        ThreadSearch::run(m_store, query, *promise);
        promise->finish();
    });
    return promise->future();
}

QFuture<StoredThreadLibrary::Result<CaptureSession>> StoredThreadLibrary::load(const QUuid &id)
{
    return afterSaves<CaptureSession>([this, id] { return m_store.load(id); });
}

QFuture<StoredThreadLibrary::Result<void>> StoredThreadLibrary::remove(const QUuid &id)
{
    auto removed = afterSaves<void>([this, id] { return m_store.remove(id); });
    m_saver.runAfterSaves([] {},
                          [this, id, removed] {
                              if (removed.result())
                                  m_saver.forget(id);
                          });
    return removed;
}

QFuture<StoredThreadLibrary::Result<void>>
StoredThreadLibrary::updateTitle(const QUuid &id, const std::optional<QString> &customTitle)
{
    return afterSaves<void>(
        [this, id, customTitle] { return m_store.updateTitle(id, customTitle); });
}

} // namespace quellora
