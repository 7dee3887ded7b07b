#pragma once

#include "history/ThreadLibrary.h"

#include <QFutureWatcher>
#include <QHash>
#include <QObject>
#include <QSet>

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
    const QList<ThreadSummary> &historySessions() const { return m_sessions; }
    /// What went wrong last, for the user; empty when nothing did.
    const QString &notice() const { return m_notice; }

    /// Opens the sidebar and reads the list anew, or closes it.
    void historyButtonClicked();
    /// Closes an open sidebar.
    void close();
    /// Makes a stored thread current and closes the sidebar. The thread that is current already
    /// stays as it is in memory, with whatever of it is not kept on disk.
    void loadSession(const QUuid &id);
    /// Deletes a thread for good. The current thread ends with it.
    void deleteSession(const QUuid &id);
    /// Gives a thread a title of its own; a blank one brings the derived title back.
    void renameSession(const QUuid &id, const QString &title);

Q_SIGNALS:
    void openChanged();
    /// isLoading(), threadsRead() or threadsInAll() changed.
    void progressChanged();
    void noticeChanged();
    /// historySessions() has other elements or another order.
    void sessionsReset();
    /// historySessions() has grown at its end; @p first is the first new position.
    void sessionsAppended(qsizetype first);
    /// The title at this position changed.
    void sessionChanged(qsizetype position);
    /// The thread at this position has gone.
    void sessionRemoved(qsizetype position);

    /// A thread became current and is to be shown.
    void threadOpened();
    /// The thread with this id is about to be forgotten: nothing may bring it back.
    void threadDeleted(const QUuid &id);
    /// The current thread has been deleted; the answer's area is to be emptied.
    void currentThreadDeleted();

private:
    using ListWatcher = QFutureWatcher<ThreadLibrary::Result<ThreadBatch>>;

    void loadAllSessions();
    void stopLoading();
    void batchArrived(const ThreadLibrary::Result<ThreadBatch> &batch);
    void listingFinished();
    void merge(QList<ThreadSummary> threads);
    void setNotice(const QString &notice);
    void logOpen() const;
    void opened(const CaptureSession &session);
    void deleted(const QUuid &id);
    void applyTitle(const QUuid &id, const std::optional<QString> &title);
    qsizetype positionOf(const QUuid &id) const;

    ThreadLibrary &m_library;
    ThreadController &m_threads;
    std::unique_ptr<ListWatcher> m_listing;
    QList<ThreadSummary> m_sessions;
    /// What the user did since the reading began; it may have seen the disk before that.
    QSet<QUuid> m_deleted;
    QHash<QUuid, std::optional<QString>> m_renamed;
    /// The next batch starts a new list.
    bool m_startsOver = false;
    bool m_isOpen = false;
    bool m_isRenaming = false;
    qsizetype m_read = 0;
    qsizetype m_total = 0;
    /// The thread that was asked for last; an answer for another one comes too late.
    QUuid m_wanted;
    QString m_notice;
};

} // namespace quellora
