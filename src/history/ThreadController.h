#pragma once

#include "base/Settings.h"
#include "history/CaptureSession.h"
#include "history/ThreadSaver.h"

#include <QHash>
#include <QMap>
#include <QObject>

#include <functional>
#include <optional>

namespace quellora {

/// Owner of the current thread and the staged screenshot. When the user turns keeping threads on,
/// it marks the current thread: what comes from then on is kept. Main thread only.
class ThreadController : public QObject
{
    Q_OBJECT
public:
    using Clock = std::function<QDateTime()>;

    /// @param settings, saver borrowed; no saver keeps every thread in memory only
    ThreadController(
        const Settings &settings, ThreadSaver *saver,
        Clock clock = [] { return QDateTime::currentDateTime(); }, QObject *parent = nullptr);

    const std::optional<CaptureSession> &currentSession() const { return m_current; }
    /// How far what is kept of the current thread is on the disk.
    SaveState saveState() const;
    /// Saves the current thread once more after a failure.
    void retrySaving();
    bool isSessionLoadedFromHistory() const { return m_loadedFromHistory; }
    /// The screenshot of the current thread that goes with the next question.
    const std::optional<CaptureSession::Screenshot> &stagedScreenshot() const { return m_staged; }
    bool hasAttachedScreenshot() const { return m_staged.has_value(); }

    /// The current thread, created when there is none.
    CaptureSession takeOrCreate();
    /// The thread that a question is about to go to: the current one or, where each send begins a
    /// thread and the current one has its answer, a new one, to which the staged screenshot moves.
    /// With history keeping on it has its persistence starting point.
    CaptureSession threadForQuery();
    /// Replaces the current thread and saves it when it is marked for persistence.
    void setCurrentSession(const CaptureSession &session);

    /// Adds a screenshot to the current thread (created when needed) and keeps it for the next
    /// question.
    void stageScreenshot(const QByteArray &jpeg);
    /// The screenshot does not wait any more; it stays in its thread.
    void clearStagedScreenshot();
    /// The user does not want the screenshot that waits: it leaves the thread, too, also on disk.
    void removeStagedScreenshot();

    /// Adds a finished answer to the thread @p threadId, be it current or one that ended while its
    /// answer was still under way. Returns whether that thread is the current one.
    /// @param screenshot what went with the question, if anything
    bool addTurn(const QUuid &threadId, const QString &prompt, const QString &response,
                 const std::optional<CaptureSession::Screenshot> &screenshot = std::nullopt);
    /// While an answer for @p threadId is under way its thread outlives its end.
    void retain(const QUuid &threadId);
    void release(const QUuid &threadId);

    /// Appends a note to the current thread (created when needed); blank texts change nothing.
    bool addNote(const QString &text);
    /// Removes a note of the current thread. It comes back, with noteDeletionFailed(), when the
    /// thread cannot be saved without it.
    bool removeNote(const QUuid &noteId);

    /// The thread is being deleted: saves of it wait for the outcome, because after the deletion
    /// they would write it again. Either forget() or resumeSaving() follows.
    void suspendSaving(const QUuid &threadId);
    /// The thread was not deleted: makes up for the save that waits, if any.
    void resumeSaving(const QUuid &threadId);
    /// Forgets a thread that has been deleted, without saving it: neither it nor an answer that is
    /// still under way for it comes back. Returns whether it was the current one.
    bool forget(const QUuid &threadId);
    /// Gives a thread another title wherever it is held, so that later saves keep it.
    void setCustomTitle(const QUuid &threadId, const std::optional<QString> &title);

    /// The current thread stays until the next question, which begins a thread of its own when each
    /// send does.
    void endThreadAtNextSend();
    /// The user goes on with the current thread: the next question is one of it.
    void continueThread();

    /// Makes a stored thread current.
    void openFromHistory(const CaptureSession &session);
    /// Saves the thread that ends and leaves none current, nothing staged.
    void endCurrentThread();
    /// endCurrentThread(), then a new empty thread is current.
    void startNewThread();

Q_SIGNALS:
    void sessionChanged();
    /// A thread that has ended got its answer.
    void endedThreadChanged(const QUuid &threadId);
    void stagedScreenshotChanged();
    /// A screenshot has left its thread.
    void screenshotRemoved(const QUuid &threadId, qint64 index);
    /// saveState() may have changed.
    void saveStateChanged();
    /// A note of the current thread is there again; @p reason is for the user.
    void noteDeletionFailed(const QString &reason);

private:
    struct Retained
    {
        int users = 0;
        std::optional<CaptureSession> ended;
    };

    struct RemovedNote
    {
        QUuid threadId;
        qsizetype position = 0;
        CaptureSession::Note note;
        /// How many notes were stored before.
        qint64 storedNotes = 0;
    };
    struct WaitingSave
    {
        CaptureSession session;
        QString failurePrefix;
    };

    void markWhenKept();
    void markForQuery(CaptureSession &session) const;
    std::optional<qint64> stagedIndex() const;
    void beginNextThread();
    void setShortenedSession(const CaptureSession &session);
    void leaveThread();
    void saveIfNeeded(const CaptureSession &session, const QString &failurePrefix);
    void save(const CaptureSession &session, const QString &failurePrefix);
    void saverReported(const QUuid &threadId);
    void restoreNotes(const QString &reason);

    const Settings &m_settings;
    ThreadSaver *m_saver;
    Clock m_clock;
    std::optional<CaptureSession> m_current;
    std::optional<CaptureSession::Screenshot> m_staged;
    QMap<QUuid, Retained> m_retained;
    /// Of the threads that were left: the number of a removed screenshot is known nowhere else.
    QHash<QUuid, qint64> m_nextScreenshotIndex;
    /// Notes whose deletion has not reached the disk yet, in the order of the deletions.
    QList<RemovedNote> m_removedNotes;
    /// Threads that are being deleted, with the latest save of each that waits.
    QMap<QUuid, std::optional<WaitingSave>> m_suspended;
    bool m_loadedFromHistory = false;
    bool m_endsAtNextSend = false;
};

} // namespace quellora
