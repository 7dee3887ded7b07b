#pragma once

#include "history/HistorySearch.h"
#include "history/ListedThreads.h"
#include "history/PendingRemovals.h"
#include "history/ThreadLibrary.h"

#include <QFutureWatcher>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <memory>

namespace quellora {

class ThreadController;

/// State and actions of the History sidebar with its list of stored threads, newest first. Main
/// thread only; disk access happens on the library's worker.
class HistoryController : public QObject
{
    Q_OBJECT
public:
    /// All borrowed.
    HistoryController(ThreadLibrary &library, ThreadController &threads, PendingRemovals &removals,
                      QObject *parent = nullptr);
    ~HistoryController() override;

    bool isHistorySidebarOpen() const { return m_isOpen; }
    /// Whether a title is being edited; Escape then cancels only the editing.
    bool isRenamingHistoryRow() const { return m_isRenaming; }
    void setRenamingHistoryRow(bool isRenaming) { m_isRenaming = isRenaming; }
    /// Whether the list is being read.
    bool isLoading() const { return m_listing != nullptr; }
    /// Number of threads read so far, including skipped ones, and number of threads on disk.
    qsizetype threadsRead() const { return m_threadsRead; }
    qsizetype threadsInAll() const { return m_totalThreads; }
    const QList<ThreadSummary> &historySessions() const { return m_listed.threads(); }
    /// The search in the threads' texts.
    HistorySearch &search() { return m_search; }
    /// The last action's error for the user; empty if there was none.
    const QString &notice() const { return m_notice; }

    /// Toggles the sidebar; opening it reloads the list.
    void historyButtonClicked();
    /// Closes the sidebar if it is open.
    void close();
    /// Makes a stored thread current and closes the sidebar. If it is the current thread already,
    /// it is not reloaded, so that its unsaved entries are not lost.
    /// @param found the text of the search for whose hit the thread is opened, if any
    void loadSession(const QUuid &id, const std::optional<FoundText> &found = std::nullopt);
    /// Deletes a listed thread and ends it if it is current. Its files are removed when that can no
    /// longer be undone; if they cannot be removed, the thread is listed again.
    void deleteSession(const QUuid &id);
    /// As deleteSession(), for all of these threads with one undo.
    void deleteThreads(const QList<QUuid> &ids);
    /// Whether a thread is left out of the list because its deletion can be undone or is under way.
    bool isHidden(const QUuid &id) const { return m_listed.isHidden(id); }
    /// The threads that nothing but the user may delete: those in use and the one being loaded.
    QSet<QUuid> threadsInUse() const;
    /// The stored threads have changed by other means than this object: reads an open list again.
    void refresh();
    /// Sets a thread's custom title; a blank one restores the derived title.
    void renameSession(const QUuid &id, const QString &title);

Q_SIGNALS:
    void openChanged();
    /// isLoading(), threadsRead() or threadsInAll() changed.
    void progressChanged();
    void noticeChanged();
    /// historySessions() has been cleared.
    void sessionsReset();
    /// @p count threads were inserted at position @p first.
    void sessionsInserted(qsizetype first, qsizetype count);
    /// @p count threads were removed from position @p first on.
    void sessionsRemoved(qsizetype first, qsizetype count);
    /// The title or contents of the thread at this position changed.
    void sessionChanged(qsizetype position);
    /// The user deleted the thread at this position.
    void sessionDeleted(qsizetype position);
    /// The thread at this position, which sessionsInserted() has announced, is back.
    void sessionRestored(qsizetype position);
    /// The stored threads, or those of them that are hidden, are others than before.
    void storedThreadsChanged();

    /// A stored thread became current and must be shown.
    void threadOpened();
    /// Emitted after threadOpened() if the thread was opened for this hit.
    void hitOpened(const quellora::FoundText &found);
    /// Threads have been removed from the disk and are about to be forgotten; handlers must drop
    /// their references so that they are not saved again.
    void threadsDeleted(const QSet<QUuid> &ids);
    /// The current thread has been deleted; the answer area must be cleared.
    void currentThreadDeleted();
    /// A deleted thread is current again and must be shown.
    void currentThreadRestored();
    /// Threads are back because their files cannot be removed; @p reason is shown to the user.
    void deletionFailed(const QString &reason);

private:
    using ListWatcher = QFutureWatcher<ThreadLibrary::Result<ThreadBatch>>;
    /// Threads deleted with one undo.
    struct Deletion
    {
        QList<QUuid> ids;
        /// What was listed of a single thread.
        std::optional<ThreadSummary> listed;
    };

    void loadAllSessions();
    void stopLoading();
    void onBatchRead(const ThreadLibrary::Result<ThreadBatch> &batch);
    void listingFinished();
    void finishLoading();
    void applyChanges();
    void setNotice(const QString &notice);
    void logOpen() const;
    void onThreadOpened(const CaptureSession &session, const std::optional<FoundText> &found);
    void startDeletion(const Deletion &deletion, const QString &text);
    void commit(const Deletion &deletion);
    void deletionFinished(const Deletion &deletion, const RemovedThreads &outcome);
    void restore(const Deletion &deletion);
    void applyTitle(const QUuid &id, const std::optional<QString> &title);

    ThreadLibrary &m_library;
    ThreadController &m_threads;
    PendingRemovals &m_removals;
    std::unique_ptr<ListWatcher> m_listing;
    ListedThreads m_listed;
    HistorySearch m_search;
    /// Continues applying changes in the next event loop iteration.
    QTimer m_continueTimer;
    bool m_isOpen = false;
    bool m_isRenaming = false;
    qsizetype m_threadsRead = 0;
    qsizetype m_totalThreads = 0;
    /// The thread requested last; results for others are outdated.
    QUuid m_requestedId;
    /// The requested thread changed while it was being loaded.
    bool m_isRequestStale = false;
    QString m_notice;
};

} // namespace quellora
