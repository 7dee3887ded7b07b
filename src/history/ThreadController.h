#pragma once

#include "base/Settings.h"
#include "history/CaptureSession.h"
#include "history/ThreadSaver.h"

#include <QHash>
#include <QMap>
#include <QObject>
#include <QSet>

#include <functional>
#include <optional>

namespace quellora {

/// Owns the current thread and the staged screenshot. When the user turns on history keeping, marks
/// the current thread so that its further entries are kept. Main thread only.
class ThreadController : public QObject
{
    Q_OBJECT
public:
    using Clock = std::function<QDateTime()>;

    /// @param settings borrowed
    /// @param saver borrowed; if null, threads are kept in memory only
    ThreadController(
        const Settings &settings, ThreadSaver *saver,
        Clock clock = [] { return QDateTime::currentDateTime(); }, QObject *parent = nullptr);

    const std::optional<CaptureSession> &currentSession() const { return m_current; }
    /// Whether the kept part of the current thread has been saved.
    SaveState saveState() const;
    /// Retries a failed save of the current thread.
    void retrySaving();
    bool isSessionLoadedFromHistory() const { return m_loadedFromHistory; }
    /// The screenshot to send with the next question; part of the current thread.
    const std::optional<CaptureSession::Screenshot> &stagedScreenshot() const { return m_staged; }
    bool hasAttachedScreenshot() const { return m_staged.has_value(); }

    /// A copy of the current thread, or a new thread if there is none.
    CaptureSession takeOrCreate();
    /// The thread for the next question: the current one or, if each send starts a new thread and
    /// endThreadAtNextSend() was called, a new one that takes over the staged screenshot. Marked
    /// for persistence if history keeping is on.
    CaptureSession threadForQuery();
    /// The current thread, or a new one if there is none, for a question to be asked again: as
    /// threadForQuery(), but it never starts a new thread in place of the current one.
    CaptureSession threadForRetry();
    /// Replaces the current thread and saves it if it is marked for persistence.
    void setCurrentSession(const CaptureSession &session);

    /// Adds a screenshot to the current thread, created if needed, and stages it for the next
    /// question.
    /// @param jpeg encoded image
    void stageScreenshot(const QByteArray &jpeg);
    /// Unstages the screenshot; it stays in its thread.
    void clearStagedScreenshot();
    /// Unstages the screenshot and removes it from its thread, also on disk.
    void removeStagedScreenshot();

    /// Adds a finished answer to the thread @p threadId, which is current or retained. Returns
    /// whether it is the current one.
    /// @param screenshot the screenshot sent with the question, if any
    bool addTurn(const QUuid &threadId, const QString &prompt, const QString &response,
                 const std::optional<CaptureSession::Screenshot> &screenshot = std::nullopt);
    /// Adds a finished answer as the newest version of a turn, as addTurn() does; as a new turn if
    /// the thread does not have that turn any longer.
    /// @param isShown puts the version on show
    bool addVersion(const QUuid &threadId, const QUuid &turnId, const QString &prompt,
                    const QString &response,
                    const std::optional<CaptureSession::Screenshot> &screenshot, bool isShown);
    /// Puts a version of a turn of the current thread on show; returns false if there is none at
    /// @p position, or it is on show.
    bool showVersion(const QUuid &turnId, qsizetype position);
    /// Keeps a thread available for addTurn() after it ends, while an answer is streaming. Calls
    /// are counted; each must be matched by release().
    void retain(const QUuid &threadId);
    void release(const QUuid &threadId);

    /// Appends a note to the current thread, created if needed. Returns false for a blank text.
    bool addNote(const QString &text);
    /// Takes a note out of the current thread while its removal can be undone; saves write it back
    /// in until then. Returns false if there is none with this id. Must be followed by removeNote()
    /// or restoreNote(), also if the thread ends.
    bool setNoteAside(const QUuid &noteId);
    /// Puts a note that was set aside back into its thread. Returns whether that is current.
    bool restoreNote(const QUuid &noteId);
    /// Removes a note that was set aside or is in the current thread; returns false if there is
    /// none with this id. If saving the current thread fails, the note is restored and
    /// noteDeletionFailed() emitted.
    bool removeNote(const QUuid &noteId);

    /// Takes a thread away while its deletion can be undone and until its files are removed: it is
    /// no longer current, and its saves are deferred, because one would create it again. Must be
    /// followed by bringBack() or forget(). Returns whether it was current.
    bool setAside(const QUuid &threadId);
    /// Returns a thread that was set aside and performs its deferred save, if any. It becomes
    /// current again, with its staged screenshot, if it was and there is no other thread with
    /// entries by now. Returns whether it did.
    bool bringBack(const QUuid &threadId);
    /// Drops a deleted thread that was set aside, including answers still streaming for it.
    void forget(const QUuid &threadId);
    /// The threads that must stay on disk: the current one, those that still get an answer or can
    /// lose a note, and those set aside.
    QSet<QUuid> threadsInUse() const;
    /// Sets the title on all copies of the thread in memory, so that later saves keep it.
    void setCustomTitle(const QUuid &threadId, const std::optional<QString> &title);

    /// Lets the next question start a new thread if the setting says that each send does; until
    /// then the thread stays current.
    void endThreadAtNextSend();
    /// Reverts endThreadAtNextSend(): the next question belongs to the current thread.
    void continueThread();

    /// Makes a stored thread current.
    void openFromHistory(const CaptureSession &session);
    /// Saves the current thread; afterwards there is no current thread and no staged screenshot.
    void endCurrentThread();
    /// Ends the current thread and makes a new empty one current.
    void startNewThread();

Q_SIGNALS:
    void sessionChanged();
    /// An answer was added to a thread that is no longer current.
    void endedThreadChanged(const QUuid &threadId);
    void stagedScreenshotChanged();
    /// A screenshot was removed from its thread.
    void screenshotRemoved(const QUuid &threadId, qint64 index);
    /// saveState() may have changed.
    void saveStateChanged();
    /// A removed note of the current thread was restored; @p reason is shown to the user.
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
        bool wasStored = false;
    };
    struct DeferredSave
    {
        CaptureSession session;
        QString failurePrefix;
    };
    /// The current thread with its state.
    struct Current
    {
        CaptureSession session;
        std::optional<CaptureSession::Screenshot> staged;
        bool isLoadedFromHistory = false;
        bool endsAtNextSend = false;
    };
    struct SetAside
    {
        /// The latest save since.
        std::optional<DeferredSave> save;
        /// If it was current.
        std::optional<Current> current;
    };

    /// Adds an answer to the thread @p threadId by @p add, which gets the link to the screenshot
    /// sent with the question; as addTurn().
    bool addAnswer(
        const QUuid &threadId, const std::optional<CaptureSession::Screenshot> &screenshot,
        const std::function<void(CaptureSession &, const CaptureSession::TurnScreenshot &)> &add);
    /// The thread if it is current or retained and ended; nullptr otherwise.
    const CaptureSession *find(const QUuid &threadId) const;
    /// Replaces a thread that find() finds and saves it, also if only deletions from it are saved.
    void replaceAndSave(const CaptureSession &session);
    /// Forgets that a note is set aside; nothing if it is not.
    std::optional<RemovedNote> takeAsideNote(const QUuid &noteId);
    void markForPersistence();
    void markForQuery(CaptureSession &session) const;
    std::optional<qint64> stagedIndex() const;
    void beginNextThread();
    void setSessionAfterRemoval(const CaptureSession &session);
    void saveAfterRemoval(const CaptureSession &session);
    bool canReplaceCurrent() const;
    void resetCurrentThread();
    void saveIfNeeded(const CaptureSession &session, const QString &failurePrefix);
    void save(CaptureSession session, const QString &failurePrefix);
    void onSaveStateChanged(const QUuid &threadId);
    void restoreNotes(const QString &reason);

    const Settings &m_settings;
    ThreadSaver *m_saver;
    Clock m_clock;
    std::optional<CaptureSession> m_current;
    std::optional<CaptureSession::Screenshot> m_staged;
    QMap<QUuid, Retained> m_retained;
    /// Next screenshot number of threads that were current before. Not derivable from the disk once
    /// the last screenshot is removed.
    QHash<QUuid, qint64> m_nextScreenshotIndex;
    /// Notes whose removal can be undone, in the order of removal. Their threads are retained.
    QList<RemovedNote> m_asideNotes;
    /// Notes whose removal is not saved yet, in the order of removal.
    QList<RemovedNote> m_removedNotes;
    QHash<QUuid, SetAside> m_aside;
    bool m_loadedFromHistory = false;
    bool m_endsAtNextSend = false;
};

} // namespace quellora
