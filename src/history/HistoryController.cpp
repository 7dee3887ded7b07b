#include "history/HistoryController.h"

#include "base/Log.h"
#include "base/WhenFinished.h"
#include "history/ThreadController.h"

#include <QLocale>
#include <QPointer>

namespace quellora {

namespace {

void log(const QString &message)
{
    Log::event(QStringLiteral("[OverlayWindowController] ") + message);
}

/// Changes applied per event loop iteration. Each takes a few microseconds while its row is
/// visible, but threads restored from a backup can be in any order and cause thousands of changes.
constexpr int changesPerIteration = 32;

/// "312 threads"
QString threadCountText(qsizetype count)
{
    return count == 1 ? QStringLiteral("1 thread")
                      : QLocale().toString(count) + QStringLiteral(" threads");
}

} // namespace

HistoryController::HistoryController(ThreadLibrary &library, ThreadController &threads,
                                     PendingRemovals &removals, QObject *parent)
    : QObject(parent)
    , m_library(library)
    , m_threads(threads)
    , m_removals(removals)
    , m_search(library)
{
    m_continueTimer.setSingleShot(true);
    m_continueTimer.setInterval(0);
    connect(&m_continueTimer, &QTimer::timeout, this, &HistoryController::applyChanges);
    connect(&m_threads, &ThreadController::endedThreadChanged, this, [this](const QUuid &id) {
        m_isRequestStale = m_isRequestStale || id == m_requestedId;
    });
}

HistoryController::~HistoryController()
{
    if (m_listing)
        m_listing->cancel();
}

void HistoryController::historyButtonClicked()
{
    if (m_isOpen) {
        close();
        return;
    }
    m_isOpen = true;
    setNotice({});
    loadAllSessions();
    Q_EMIT openChanged();
}

void HistoryController::close()
{
    if (!m_isOpen)
        return;
    m_isOpen = false;
    m_isRenaming = false;
    m_requestedId = {};
    stopLoading();
    logOpen();
    Q_EMIT openChanged();
}

void HistoryController::logOpen() const
{
    log(QStringLiteral("History button clicked — sidebar open=%1, %2 session(s)")
            .arg(m_isOpen ? QStringLiteral("true") : QStringLiteral("false"))
            .arg(historySessions().size()));
}

void HistoryController::loadAllSessions()
{
    stopLoading();
    m_listed.beginReading();
    m_threadsRead = 0;
    m_totalThreads = 0;
    m_listing = std::make_unique<ListWatcher>();
    connect(m_listing.get(), &QFutureWatcherBase::resultReadyAt, this,
            [this](int index) { onBatchRead(m_listing->resultAt(index)); });
    connect(m_listing.get(), &QFutureWatcherBase::finished, this,
            &HistoryController::listingFinished);
    m_listing->setFuture(m_library.list());
    Q_EMIT progressChanged();
}

void HistoryController::stopLoading()
{
    if (!m_listing)
        return;
    m_continueTimer.stop();
    m_listed.abandonReading();
    m_listing->disconnect(this);
    m_listing->cancel();
    // Deleted later because one of its signals may be being handled.
    m_listing.release()->deleteLater();
    Q_EMIT progressChanged();
}

void HistoryController::onBatchRead(const ThreadLibrary::Result<ThreadBatch> &batch)
{
    if (!batch) {
        log(QStringLiteral("ERROR: Failed to list sessions for History sidebar: ") +
            batch.error().description());
        m_listed.clear();
        setNotice(QStringLiteral("The saved threads can't be read."));
        Q_EMIT sessionsReset();
        return;
    }
    for (const SkippedThread &skipped : batch->skipped) {
        log(QStringLiteral("WARNING: Session %1 left out of History (non-fatal): %2")
                .arg(uuidText(skipped.id), skipped.reason));
    }
    m_threadsRead += batch->threads.size() + batch->skipped.size();
    m_totalThreads = batch->total;
    m_listed.add(batch->threads);
    applyChanges();
    Q_EMIT progressChanged();
}

void HistoryController::applyChanges()
{
    using Kind = ListedThreads::Change::Kind;
    for (int i = 0; i < changesPerIteration; ++i) {
        const auto change = m_listed.applyNext();
        if (!change) {
            if (m_listing && m_listed.isComplete())
                finishLoading();
            return;
        }
        switch (change->kind) {
        case Kind::Inserted:
            Q_EMIT sessionsInserted(change->first, change->count);
            break;
        case Kind::Removed:
            Q_EMIT sessionsRemoved(change->first, change->count);
            break;
        case Kind::Changed:
            Q_EMIT sessionChanged(change->first);
            break;
        }
    }
    m_continueTimer.start();
}

void HistoryController::listingFinished()
{
    m_listed.endReading();
    applyChanges();
}

void HistoryController::finishLoading()
{
    m_listing.release()->deleteLater();
    logOpen();
    Q_EMIT progressChanged();
}

void HistoryController::loadSession(const QUuid &id, const std::optional<FoundText> &found)
{
    setNotice({});
    if (const auto &current = m_threads.currentSession(); current && current->id == id) {
        m_threads.continueThread();
        onThreadOpened(*current, found);
        return;
    }
    m_requestedId = id;
    m_isRequestStale = false;
    whenFinished(m_library.load(id), this,
                 [this, id, found](const ThreadLibrary::Result<CaptureSession> &session) {
                     if (m_requestedId != id)
                         return;
                     m_requestedId = {};
                     // The thread changed while it was loading; its next save would lose the
                     // change.
                     if (m_isRequestStale) {
                         loadSession(id, found);
                         return;
                     }
                     if (!session) {
                         log(QStringLiteral("ERROR: Failed to load session %1 from History: %2")
                                 .arg(uuidText(id), session.error().description()));
                         setNotice(QStringLiteral("This thread can't be opened."));
                         return;
                     }
                     m_threads.openFromHistory(*session);
                     onThreadOpened(*session, found);
                 });
}

void HistoryController::onThreadOpened(const CaptureSession &session,
                                       const std::optional<FoundText> &found)
{
    close();
    Q_EMIT threadOpened();
    if (found)
        Q_EMIT hitOpened(*found);
    log(QStringLiteral("Session %1 loaded from History (%2 notes, %3 turns, %4 screenshots)")
            .arg(uuidText(session.id))
            .arg(session.notes.size())
            .arg(session.turns.size())
            .arg(session.screenshots.size()));
}

void HistoryController::deleteSession(const QUuid &id)
{
    const qsizetype position = m_listed.positionOf(id);
    if (position < 0)
        return;
    const ThreadSummary &thread = historySessions().at(position);
    startDeletion({{id}, thread}, QStringLiteral("Deleted “%1”").arg(thread.title().simplified()));
}

void HistoryController::deleteThreads(const QList<QUuid> &ids)
{
    if (!ids.isEmpty())
        startDeletion({ids, {}}, QStringLiteral("Deleted ") + threadCountText(ids.size()));
}

void HistoryController::startDeletion(const Deletion &deletion, const QString &text)
{
    setNotice({});
    bool wasCurrent = false;
    for (const QUuid &id : deletion.ids) {
        if (m_requestedId == id)
            m_requestedId = {};
        wasCurrent = m_threads.setAside(id) || wasCurrent;
    }
    const qsizetype position = m_listed.hide(deletion.ids);
    if (deletion.listed)
        Q_EMIT sessionDeleted(position);
    else
        Q_EMIT sessionsReset();
    if (wasCurrent)
        Q_EMIT currentThreadDeleted();
    m_removals.add({text,
                    [self = QPointer(this), deletion] {
                        if (self)
                            self->commit(deletion);
                    },
                    [self = QPointer(this), deletion] {
                        if (self)
                            self->restore(deletion);
                    }});
    Q_EMIT storedThreadsChanged();
}

void HistoryController::commit(const Deletion &deletion)
{
    // The threads stay set aside until their files are removed.
    whenFinished(
        m_library.remove(deletion.ids), this,
        [this, deletion](const RemovedThreads &outcome) { deletionFinished(deletion, outcome); });
}

void HistoryController::deletionFinished(const Deletion &deletion, const RemovedThreads &outcome)
{
    if (!outcome.removed.isEmpty()) {
        Q_EMIT threadsDeleted({outcome.removed.cbegin(), outcome.removed.cend()});
        for (const QUuid &id : outcome.removed)
            m_threads.forget(id);
        m_listed.forgetHidden(outcome.removed);
        log(outcome.removed.size() == 1
                ? QStringLiteral("Session %1 deleted").arg(uuidText(outcome.removed.constFirst()))
                : QStringLiteral("%1 sessions deleted").arg(outcome.removed.size()));
    }
    if (!outcome.failed.isEmpty()) {
        const StoreError &error = outcome.failed.constFirst();
        log(QStringLiteral("ERROR: Failed to delete session %1: %2")
                .arg(uuidText(error.id), error.description()));
        Deletion back{{}, deletion.listed};
        for (const StoreError &failed : outcome.failed)
            back.ids.append(failed.id);
        restore(back);
        const QString reason =
            deletion.ids.size() == 1
                ? QStringLiteral("This thread can't be deleted.")
                : threadCountText(back.ids.size()) + QStringLiteral(" can't be deleted.");
        setNotice(reason);
        Q_EMIT deletionFailed(reason);
        return;
    }
    Q_EMIT storedThreadsChanged();
}

void HistoryController::restore(const Deletion &deletion)
{
    bool isCurrent = false;
    for (const QUuid &id : deletion.ids)
        isCurrent = m_threads.bringBack(id) || isCurrent;
    if (deletion.listed) {
        const qsizetype position = m_listed.show(*deletion.listed);
        Q_EMIT sessionsInserted(position, 1);
        Q_EMIT sessionRestored(position);
    } else {
        m_listed.show(deletion.ids);
    }
    // Lists several again, and what has changed in the meantime.
    refresh();
    if (isCurrent)
        Q_EMIT currentThreadRestored();
}

void HistoryController::refresh()
{
    if (m_isOpen)
        loadAllSessions();
    Q_EMIT storedThreadsChanged();
}

QSet<QUuid> HistoryController::threadsInUse() const
{
    QSet<QUuid> threads = m_threads.threadsInUse();
    if (!m_requestedId.isNull())
        threads.insert(m_requestedId);
    return threads;
}

void HistoryController::renameSession(const QUuid &id, const QString &title)
{
    setNotice({});
    const qsizetype position = m_listed.positionOf(id);
    if (position < 0)
        return;
    const QString trimmed = title.trimmed();
    const std::optional<QString> before = historySessions().at(position).customTitle;
    const std::optional<QString> after = trimmed.isEmpty() ? std::nullopt : std::optional(trimmed);
    // Show the new title at once and revert it on failure.
    applyTitle(id, after);
    whenFinished(m_library.updateTitle(id, after), this,
                 [this, id, before](const ThreadLibrary::Result<void> &updated) {
                     if (updated) {
                         log(QStringLiteral("Session %1 renamed").arg(uuidText(id)));
                         return;
                     }
                     log(QStringLiteral("ERROR: Failed to rename session %1: %2")
                             .arg(uuidText(id), updated.error().description()));
                     applyTitle(id, before);
                     setNotice(QStringLiteral("This thread can't be renamed."));
                 });
}

void HistoryController::applyTitle(const QUuid &id, const std::optional<QString> &title)
{
    m_threads.setCustomTitle(id, title);
    m_isRequestStale = m_isRequestStale || id == m_requestedId;
    const qsizetype position = m_listed.setTitle(id, title);
    if (position >= 0)
        Q_EMIT sessionChanged(position);
}

void HistoryController::setNotice(const QString &notice)
{
    if (m_notice == notice)
        return;
    m_notice = notice;
    Q_EMIT noticeChanged();
}

} // namespace quellora
