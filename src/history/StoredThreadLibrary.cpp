#include "history/StoredThreadLibrary.h"

#include "history/ThreadListing.h"
#include "history/ThreadMeasuring.h"
#include "history/ThreadSearch.h"
#include "history/ThreadSummaryReader.h"

#include <QPromise>

#include <memory>
#include <utility>

namespace quellora {

namespace {

RemovedThreads removeAll(const CaptureSessionStore &store, const QList<QUuid> &ids)
{
    RemovedThreads outcome;
    for (const QUuid &id : ids) {
        if (const auto removed = store.remove(id); removed)
            outcome.removed.append(id);
        else
            outcome.failed.append(removed.error());
    }
    return outcome;
}

} // namespace

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
QFuture<T> StoredThreadLibrary::afterSaves(std::function<T()> work,
                                           std::function<void(const T &)> done)
{
    auto promise = std::make_shared<QPromise<T>>();
    promise->start();
    // A failed save may belong to the requested thread, so retry it first.
    m_saver.retryFailed();
    m_saver.runAfterSaves(
        [promise, work = std::move(work)] {
            promise->addResult(work());
            promise->finish();
        },
        [result = promise->future(), done = std::move(done)] {
            if (done)
                done(result.result());
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

QFuture<StoredThreadLibrary::Result<QList<MeasuredThread>>> StoredThreadLibrary::measure()
{
    auto promise = std::make_shared<QPromise<Result<QList<MeasuredThread>>>>();
    promise->start();
    m_saver.runAfterSaves([this, promise] {
        m_readers.start([this, promise] {
            promise->addResult(ThreadMeasuring::measure(m_store));
            promise->finish();
        });
    });
    return promise->future();
}

QFuture<StoredThreadLibrary::Result<CaptureSession>> StoredThreadLibrary::load(const QUuid &id)
{
    return afterSaves<Result<CaptureSession>>([this, id] { return m_store.load(id); });
}

QFuture<RemovedThreads> StoredThreadLibrary::remove(const QList<QUuid> &ids)
{
    return afterSaves<RemovedThreads>(
        [this, ids] { return removeAll(m_store, ids); },
        [this](const RemovedThreads &outcome) { forget(outcome.removed); });
}

QFuture<StoredThreadLibrary::Result<RemovedThreads>>
StoredThreadLibrary::removeOlder(const QDateTime &limit, const QSet<QUuid> &kept)
{
    return afterSaves<Result<RemovedThreads>>(
        [this, limit, kept]() -> Result<RemovedThreads> {
            const auto root = m_store.sessionsRoot();
            if (!root)
                return tl::unexpected(root.error());
            auto ids = m_store.list();
            if (!ids)
                return tl::unexpected(ids.error());
            ThreadSummaryReader reader(*root);
            ids->removeIf([&](const QUuid &id) {
                if (kept.contains(id))
                    return true;
                const auto summary = reader.read(id);
                return !summary || !(summary->updatedAt < limit);
            });
            return removeAll(m_store, *ids);
        },
        [this](const Result<RemovedThreads> &outcome) {
            if (outcome)
                forget(outcome->removed);
        });
}

void StoredThreadLibrary::forget(const QList<QUuid> &ids)
{
    for (const QUuid &id : ids)
        m_saver.forget(id);
}

QFuture<StoredThreadLibrary::Result<void>>
StoredThreadLibrary::updateTitle(const QUuid &id, const std::optional<QString> &customTitle)
{
    return afterSaves<Result<void>>(
        [this, id, customTitle] { return m_store.updateTitle(id, customTitle); });
}

} // namespace quellora
