#include "history/HistoryController.h"

#include "app/Log.h"
#include "app/WhenFinished.h"
#include "history/ThreadController.h"

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

void log(const QString &message)
{
    Log::event(QStringLiteral("[OverlayWindowController] ") + message);
}

bool isNewer(const ThreadSummary &left, const ThreadSummary &right)
{
    return left.updatedAt > right.updatedAt;
}

} // namespace

HistoryController::HistoryController(ThreadLibrary &library, ThreadController &threads,
                                     QObject *parent)
    : QObject(parent), m_library(library), m_threads(threads)
{}

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
    m_wanted = {};
    stopLoading();
    logOpen();
    Q_EMIT openChanged();
}

void HistoryController::logOpen() const
{
    log(QStringLiteral("History button clicked — sidebar open=%1, %2 session(s)")
            .arg(m_isOpen ? QStringLiteral("true") : QStringLiteral("false"))
            .arg(m_sessions.size()));
}

void HistoryController::loadAllSessions()
{
    stopLoading();
    // What was read last time stays on show until there is something newer.
    m_startsOver = true;
    m_deleted.clear();
    m_renamed.clear();
    m_read = 0;
    m_total = 0;
    m_listing = std::make_unique<ListWatcher>();
    connect(m_listing.get(), &QFutureWatcherBase::resultReadyAt, this,
            [this](int index) { batchArrived(m_listing->resultAt(index)); });
    connect(m_listing.get(), &QFutureWatcherBase::finished, this,
            &HistoryController::listingFinished);
    m_listing->setFuture(m_library.list());
    Q_EMIT progressChanged();
}

void HistoryController::stopLoading()
{
    if (!m_listing)
        return;
    m_listing->disconnect(this);
    m_listing->cancel();
    // It may be the one whose signal is being handled.
    m_listing.release()->deleteLater();
    Q_EMIT progressChanged();
}

void HistoryController::batchArrived(const ThreadLibrary::Result<ThreadBatch> &batch)
{
    if (!batch) {
        log(QStringLiteral("ERROR: Failed to list sessions for History sidebar: ") +
            batch.error().description());
        m_startsOver = false;
        m_sessions.clear();
        setNotice(QStringLiteral("The saved threads can't be read."));
        Q_EMIT sessionsReset();
        return;
    }
    for (const SkippedThread &skipped : batch->skipped) {
        log(QStringLiteral("WARNING: Session %1 left out of History (non-fatal): %2")
                .arg(uuidText(skipped.id), skipped.reason));
    }
    m_read += batch->threads.size() + batch->skipped.size();
    m_total = batch->total;
    merge(batch->threads);
    Q_EMIT progressChanged();
}

void HistoryController::merge(QList<ThreadSummary> threads)
{
    threads.removeIf([this](const ThreadSummary &thread) { return m_deleted.contains(thread.id); });
    for (ThreadSummary &thread : threads) {
        if (const auto title = m_renamed.constFind(thread.id); title != m_renamed.constEnd())
            thread.customTitle = *title;
    }
    std::stable_sort(threads.begin(), threads.end(), isNewer);
    if (m_startsOver) {
        m_startsOver = false;
        m_sessions = std::move(threads);
        Q_EMIT sessionsReset();
        return;
    }
    if (threads.isEmpty())
        return;
    const qsizetype first = m_sessions.size();
    const bool staysSorted = first == 0 || !isNewer(threads.constFirst(), m_sessions.constLast());
    m_sessions.append(std::move(threads));
    if (staysSorted) {
        Q_EMIT sessionsAppended(first);
        return;
    }
    std::inplace_merge(m_sessions.begin(), m_sessions.begin() + first, m_sessions.end(), isNewer);
    Q_EMIT sessionsReset();
}

void HistoryController::listingFinished()
{
    if (m_startsOver)
        merge({});
    m_listing.release()->deleteLater();
    logOpen();
    Q_EMIT progressChanged();
}

void HistoryController::loadSession(const QUuid &id)
{
    setNotice({});
    if (const auto &current = m_threads.currentSession(); current && current->id == id) {
        opened(*current);
        return;
    }
    m_wanted = id;
    whenFinished(m_library.load(id), this,
                 [this, id](const ThreadLibrary::Result<CaptureSession> &session) {
                     if (m_wanted != id)
                         return;
                     m_wanted = {};
                     if (!session) {
                         log(QStringLiteral("ERROR: Failed to load session %1 from History: %2")
                                 .arg(uuidText(id), session.error().description()));
                         setNotice(QStringLiteral("This thread can't be opened."));
                         return;
                     }
                     m_threads.openFromHistory(*session);
                     opened(*session);
                 });
}

void HistoryController::opened(const CaptureSession &session)
{
    close();
    Q_EMIT threadOpened();
    log(QStringLiteral("Session %1 loaded from History (%2 notes, %3 turns, %4 screenshots)")
            .arg(uuidText(session.id))
            .arg(session.notes.size())
            .arg(session.turns.size())
            .arg(session.screenshots.size()));
}

void HistoryController::deleteSession(const QUuid &id)
{
    setNotice({});
    if (m_wanted == id)
        m_wanted = {};
    // Before the files go: an answer or a save that comes later would write them again.
    Q_EMIT threadDeleted(id);
    if (m_threads.forget(id))
        Q_EMIT currentThreadDeleted();
    whenFinished(m_library.remove(id), this,
                 [this, id](const ThreadLibrary::Result<void> &removed) {
                     if (!removed) {
                         log(QStringLiteral("ERROR: Failed to delete session %1: %2")
                                 .arg(uuidText(id), removed.error().description()));
                         setNotice(QStringLiteral("This thread can't be deleted."));
                         return;
                     }
                     deleted(id);
                     log(QStringLiteral("Session %1 deleted").arg(uuidText(id)));
                 });
}

void HistoryController::deleted(const QUuid &id)
{
    m_deleted.insert(id);
    const qsizetype position = positionOf(id);
    if (position < 0)
        return;
    m_sessions.removeAt(position);
    Q_EMIT sessionRemoved(position);
}

void HistoryController::renameSession(const QUuid &id, const QString &title)
{
    setNotice({});
    const qsizetype position = positionOf(id);
    if (position < 0)
        return;
    const QString trimmed = title.trimmed();
    const std::optional<QString> before = m_sessions.at(position).customTitle;
    const std::optional<QString> after = trimmed.isEmpty() ? std::nullopt : std::optional(trimmed);
    // Shown at once; a failure takes it back.
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
    m_renamed.insert(id, title);
    const qsizetype position = positionOf(id);
    if (position < 0)
        return;
    m_sessions[position].customTitle = title;
    Q_EMIT sessionChanged(position);
}

qsizetype HistoryController::positionOf(const QUuid &id) const
{
    const auto it = std::find_if(m_sessions.begin(), m_sessions.end(),
                                 [&id](const ThreadSummary &thread) { return thread.id == id; });
    return it == m_sessions.end() ? -1 : std::distance(m_sessions.begin(), it);
}

void HistoryController::setNotice(const QString &notice)
{
    if (m_notice == notice)
        return;
    m_notice = notice;
    Q_EMIT noticeChanged();
}

} // namespace quellora
