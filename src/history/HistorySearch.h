#pragma once

#include "history/TextFolding.h"
#include "history/ThreadLibrary.h"

#include <QFutureWatcher>
#include <QObject>
#include <QSet>

#include <memory>
#include <optional>
#include <vector>

namespace quellora {

/// The running search in the texts of stored threads, and what it has found. Main thread only; the
/// files are read on workers.
class HistorySearch : public QObject
{
    Q_OBJECT
public:
    /// @param library borrowed
    explicit HistorySearch(ThreadLibrary &library, QObject *parent = nullptr);
    ~HistorySearch() override;

    /// Replaces the search, keeping the hits so far in whose snippets the new text occurs at the
    /// same place; the new search confirms or drops them.
    void start(const ThreadQuery &query);
    /// Searches further threads, also those that have changed since they were searched.
    void add(const QList<QUuid> &threads);
    /// Cancels the search and forgets its hits.
    void stop();

    bool isRunning() const { return !m_running.empty() || !m_added.isEmpty(); }
    bool hasHitIn(const QUuid &thread) const { return m_hits.contains(thread); }
    /// Nothing if no hit in the thread is known so far.
    std::optional<ThreadHit> hitIn(const QUuid &thread) const;

Q_SIGNALS:
    void runningChanged();
    /// Hits in these threads were found, changed or dropped.
    void hitsChanged(const QSet<QUuid> &threads);

private:
    using Watcher = QFutureWatcher<ThreadHits>;

    struct KnownHit
    {
        ThreadHit hit;
        /// The search that found it last; 0 for one that is being searched again. The length of a
        /// hit that the present search has not confirmed is that of an earlier text.
        quint64 search = 0;
    };

    void cancel();
    void run(const QList<QUuid> &threads);
    void runAdded();
    void keepMatching(const ThreadQuery &query);
    void batchFound(const ThreadHits &hits);
    void finished(Watcher *watcher);

    ThreadLibrary &m_library;
    ThreadQuery m_query;
    /// Marks hits of an earlier search; changes its buffers only.
    mutable std::optional<SearchText> m_text;
    QHash<QUuid, KnownHit> m_hits;
    quint64 m_search = 0;
    std::vector<std::unique_ptr<Watcher>> m_running;
    /// Threads to search in the next event loop iteration; a list being read adds many in a row.
    QList<QUuid> m_added;
};

} // namespace quellora
