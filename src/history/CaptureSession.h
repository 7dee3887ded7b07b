#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>
#include <variant>

namespace quellora {

/// Upper-case hyphenated text of a UUID, 36 characters: the form used on disk and in pages.
QString uuidText(const QUuid &id);

/// Reads that form, in either case; nothing else counts as a UUID.
std::optional<QUuid> uuidFromText(const QString &text);

/// One thread in memory: screenshots, notes and turns in the order in which they were added, and
/// what says which of them are kept on disk. A value type.
struct CaptureSession
{
    struct Screenshot
    {
        /// Number within the thread, also in its file name; never renumbered, never given twice.
        qint64 index = 0;
        /// JPEG bytes.
        QByteArray imageData;
        QDateTime capturedAt;

        bool operator==(const Screenshot &) const = default;
    };
    struct Note
    {
        QUuid id;
        QString text;
        QDateTime createdAt;

        bool operator==(const Note &) const = default;
    };
    /// Which screenshot went with a question.
    struct TurnScreenshot
    {
        /// Nothing when the question went out without one.
        std::optional<qint64> index;

        bool operator==(const TurnScreenshot &) const = default;
    };
    struct Turn
    {
        QUuid id;
        QString prompt;
        QString response;
        QDateTime createdAt;
        /// Nothing in threads that were stored before this was recorded.
        std::optional<TurnScreenshot> screenshot = std::nullopt;

        bool operator==(const Turn &) const = default;
    };
    struct NotePersistenceCursor
    {
        qint64 sinceScreenshotIndex = 0;
        qint64 sinceNoteIndex = 0;

        bool operator==(const NotePersistenceCursor &) const = default;
    };
    struct TurnPersistenceCursor
    {
        qint64 sinceScreenshotIndex = 0;
        qint64 sinceTurnIndex = 0;

        bool operator==(const TurnPersistenceCursor &) const = default;
    };

    /// What came from the disk: the first so many elements of each list. They stay there, whatever
    /// the cursors say, until the user removes them.
    struct StoredPart
    {
        qint64 screenshots = 0;
        qint64 notes = 0;
        qint64 turns = 0;
        QDateTime updatedAt;

        bool operator==(const StoredPart &) const = default;
    };
    /// What of a thread belongs on the disk.
    struct KeptPart
    {
        QList<Screenshot> screenshots;
        QList<Note> notes;
        QList<Turn> turns;
        QDateTime updatedAt;

        bool isEmpty() const { return screenshots.isEmpty() && notes.isEmpty() && turns.isEmpty(); }
    };

    QUuid id;
    QList<Screenshot> screenshots;
    QList<Note> notes;
    QList<Turn> turns;
    QDateTime createdAt;
    QDateTime updatedAt;
    std::optional<NotePersistenceCursor> notePersistenceCursor;
    std::optional<TurnPersistenceCursor> turnPersistenceCursor;
    std::optional<QString> customTitle;
    std::optional<StoredPart> storedPart;
    /// Number of the next screenshot; those of removed ones are not given again.
    qint64 nextScreenshotIndex = 0;

    bool operator==(const CaptureSession &) const = default;

    /// A new, empty thread with a fresh id.
    static CaptureSession create(const QDateTime &now = QDateTime::currentDateTime());

    void addScreenshot(const QByteArray &data, const QDateTime &capturedAt,
                       const QDateTime &now = QDateTime::currentDateTime());
    /// Gives the thread a screenshot of its own back, under its number, if it does not have it: one
    /// that is opened again comes without what was not kept.
    void restoreScreenshot(const Screenshot &screenshot);
    /// Removes the screenshot of that number, if any; returns whether there was one.
    bool removeScreenshot(qint64 index);
    void addTurn(const QString &prompt, const QString &response, const QDateTime &createdAt,
                 const QDateTime &now = QDateTime::currentDateTime(),
                 const std::optional<TurnScreenshot> &screenshot = std::nullopt);
    /// Appends a note unless @p text is blank; starts note persistence from the beginning of the
    /// thread. Returns whether a note was added.
    bool addNote(const QString &text, const QDateTime &now = QDateTime::currentDateTime());
    /// Removes the note with that id, if any; returns whether there was one.
    bool removeNote(const QUuid &noteId);

    void beginPersistingNotes();
    /// Keeps what comes from now on, and what was kept before.
    /// @param stagedIndex number of a screenshot that waits for its question, which is kept as well
    void beginPersistingTurns(const std::optional<qint64> &stagedIndex = std::nullopt);
    void resumeTurnPersistingFromDisk();
    /// Everything in the thread has just been read from the disk.
    void markAsStored();
    /// Whether additions are kept.
    bool isMarkedForPersistence() const
    {
        return notePersistenceCursor.has_value() || turnPersistenceCursor.has_value();
    }

    /// What the cursors, the stored part and the links from turns to screenshots keep.
    KeptPart keptPart() const;

    /// Title of a thread without a custom one: first line of the first prompt, else of the first
    /// note, else "Screenshot".
    QString previewText() const;
    /// First line of @p text after trimming white space and line breaks at both ends.
    static QString firstLine(const QString &text);

private:
    QList<Screenshot>::const_iterator findScreenshot(const std::optional<qint64> &index) const;
};

/// One item of a thread page.
using ThreadEntry = std::variant<CaptureSession::Note, CaptureSession::Turn>;

/// Notes and turns in time order; at equal times notes come first.
QList<ThreadEntry> chronologicalEntries(const CaptureSession &session);

} // namespace quellora
