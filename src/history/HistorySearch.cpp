#include "history/HistorySearch.h"

#include <algorithm>
#include <utility>

namespace quellora {

HistorySearch::HistorySearch(ThreadLibrary &library, QObject *parent)
    : QObject(parent), m_library(library)
{}

HistorySearch::~HistorySearch()
{
    cancel();
}

void HistorySearch::start(const ThreadQuery &query)
{
    const bool wasRunning = isRunning();
    cancel();
    keepMatching(query);
    m_query = query;
    run(query.threads);
    if (isRunning() != wasRunning)
        Q_EMIT runningChanged();
}

void HistorySearch::add(const QList<QUuid> &threads)
{
    const bool wasRunning = isRunning();
    for (const QUuid &thread : threads) {
        if (const auto known = m_hits.find(thread); known != m_hits.end())
            known->search = 0;
    }
    if (m_added.isEmpty() && !threads.isEmpty())
        QMetaObject::invokeMethod(this, &HistorySearch::runAdded, Qt::QueuedConnection);
    m_added.append(threads);
    if (isRunning() != wasRunning)
        Q_EMIT runningChanged();
}

void HistorySearch::runAdded()
{
    run(std::exchange(m_added, {}));
}

void HistorySearch::stop()
{
    const bool wasRunning = isRunning();
    cancel();
    m_hits.clear();
    if (wasRunning)
        Q_EMIT runningChanged();
}

std::optional<ThreadHit> HistorySearch::hitIn(const QUuid &thread) const
{
    const auto found = m_hits.constFind(thread);
    if (found == m_hits.constEnd())
        return std::nullopt;
    ThreadHit hit = found->hit;
    if (found->search != m_search) {
        const std::string rest = hit.snippet.mid(hit.start).toStdString();
        if (const auto range = m_text->findIn(rest))
            hit.length = QString::fromUtf8(rest.data(), range->length).size();
    }
    return hit;
}

void HistorySearch::cancel()
{
    for (auto &watcher : m_running) {
        watcher->disconnect(this);
        watcher->cancel();
        // Deleted later because one of its signals may be being handled.
        watcher.release()->deleteLater();
    }
    m_running.clear();
    m_added.clear();
}

void HistorySearch::run(const QList<QUuid> &threads)
{
    if (threads.isEmpty())
        return;
    auto owned = std::make_unique<Watcher>();
    Watcher *const watcher = owned.get();
    connect(watcher, &QFutureWatcherBase::resultReadyAt, this,
            [this, watcher](int index) { batchFound(watcher->resultAt(index)); });
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] { finished(watcher); });
    m_running.push_back(std::move(owned));
    ThreadQuery query = m_query;
    query.threads = threads;
    watcher->setFuture(m_library.search(query));
}

void HistorySearch::keepMatching(const ThreadQuery &query)
{
    m_text.emplace(query.text, query.locale);
    ++m_search;
    const QByteArray reduced = m_text->reduced();
    // In place, because there may be a hit in each of thousands of threads.
    m_hits.removeIf([&](const auto &known) {
        return query.threads.isEmpty() || !known.value().hit.reduced.startsWith(reduced);
    });
}

void HistorySearch::batchFound(const ThreadHits &hits)
{
    QSet<QUuid> changed;
    for (auto hit = hits.begin(); hit != hits.end(); ++hit) {
        const bool isKnown = hitIn(hit.key()) == *hit;
        m_hits.insert(hit.key(), {*hit, m_search});
        if (!isKnown)
            changed.insert(hit.key());
    }
    if (!changed.isEmpty())
        Q_EMIT hitsChanged(changed);
}

void HistorySearch::finished(Watcher *watcher)
{
    const auto done = std::find_if(m_running.begin(), m_running.end(),
                                   [watcher](const auto &each) { return each.get() == watcher; });
    done->release()->deleteLater();
    m_running.erase(done);
    if (isRunning())
        return;
    QSet<QUuid> dropped;
    m_hits.removeIf([&](const auto &known) {
        const bool isDropped = known.value().search != m_search;
        if (isDropped)
            dropped.insert(known.key());
        return isDropped;
    });
    if (!dropped.isEmpty())
        Q_EMIT hitsChanged(dropped);
    Q_EMIT runningChanged();
}

} // namespace quellora
