#pragma once

#include "history/ListedThreads.h"
#include "history/ThreadLibrary.h"

#include <QFutureWatcher>
#include <QObject>
#include <QTimer>

#include <memory>

namespace quellora {

class ThreadController;

/// State of the History sidebar: the list of stored threads, newest first, and what can be done
/// with them. Main thread only; the disk is used by the library's worker.
class HistoryController : public QObject
{
    Q_OBJECT
public:
    /// Both borrowed.
    HistoryController(ThreadLibrary &library, ThreadController &threads, QObject *parent = nullptr);
    ~HistoryController() override;

    bool isHistorySidebarOpen() const { return m_isOpen; }
    /// A title is being typed: Escape ends that and nothing else.
    bool isRenamingHistoryRow() const { return m_isRenaming; }
    void setRenamingHistoryRow(bool isRenaming) { m_isRenaming = isRenaming; }
    /// The list is being read.
    bool isLoading() const { return m_listing != nullptr; }
    /// Threads read so far, left-out ones included, and threads on disk.
    qsizetype threadsRead() const { return m_read; }
    qsizetype threadsInAll() const { return m_total; }
    const QList<ThreadSummary> &historySessions() const { return m_listed.threads(); }
    /// What went wrong last, for the user; empty when nothing did.
    const QString &notice() const { return m_notice; }

    /// Opens the sidebar and reads the list anew, or closes it.
    void historyButtonClicked();
    /// Closes an open sidebar.
    void close();
    /// Makes a stored thread current and closes the sidebar. The thread that is current already
    /// stays as it is in memory, with whatever of it is not kept on disk.
    void loadSession(const QUuid &id);
    /// Deletes a thread for good. The current thread ends with it; when its files cannot be
    /// removed, everything stays as it is.
    void deleteSession(const QUuid &id);
    /// Gives a thread a title of its own; a blank one brings the derived title back.
    void renameSession(const QUuid &id, const QString &title);

Q_SIGNALS:
    void openChanged();
    /// isLoading(), threadsRead() or threadsInAll() changed.
    void progressChanged();
    void noticeChanged();
    /// historySessions() has become empty.
    void sessionsReset();
    /// @p count threads came in at position @p first.
    void sessionsInserted(qsizetype first, qsizetype count);
    /// @p count threads from position @p first on are no longer on the disk.
    void sessionsRemoved(qsizetype first, qsizetype count);
    /// The thread at this position has another title or other contents.
    void sessionChanged(qsizetype position);
    /// The user deleted the thread that was at this position.
    void sessionDeleted(qsizetype position);

    /// A thread became current and is to be shown.
    void threadOpened();
    /// The thread with this id has been deleted and is about to be forgotten: nothing may bring it
    /// back.
    void threadDeleted(const QUuid &id);
    /// The current thread has been deleted; the answer's area is to be emptied.
    void currentThreadDeleted();

private:
    using ListWatcher = QFutureWatcher<ThreadLibrary::Result<ThreadBatch>>;

    void loadAllSessions();
    void stopLoading();
    void batchArrived(const ThreadLibrary::Result<ThreadBatch> &batch);
    void listingFinished();
    void readingDone();
    void applyChanges();
    void setNotice(const QString &notice);
    void logOpen() const;
    void opened(const CaptureSession &session);
    void deleted(const QUuid &id);
    void applyTitle(const QUuid &id, const std::optional<QString> &title);

    ThreadLibrary &m_library;
    ThreadController &m_threads;
    std::unique_ptr<ListWatcher> m_listing;
    ListedThreads m_listed;
    /// Goes on with changes that would have kept everything else waiting.
    QTimer m_more;
    bool m_isOpen = false;
    bool m_isRenaming = false;
    qsizetype m_read = 0;
    qsizetype m_total = 0;
    /// The thread that was asked for last; an answer for another one comes too late.
    QUuid m_wanted;
    /// What is being read has changed meanwhile.
    bool m_isWantedStale = false;
    QString m_notice;
};

} // namespace quellora
