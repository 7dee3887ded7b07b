#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>
#include <variant>

namespace quellora {

/// A UUID as 36 upper-case hyphenated characters, the form used on disk and in pages.
QString uuidText(const QUuid &id);

/// Parses the form of uuidText() in either case; nullopt for any other text.
std::optional<QUuid> uuidFromText(const QString &text);

/// One thread in memory: screenshots, notes and turns in insertion order, and the cursors that
/// select which of them are kept on disk. A value type.
struct CaptureSession
{
    struct Screenshot
    {
        /// Number within the thread and in the file name; never changed or reused.
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
    /// The screenshot sent with a question.
    struct TurnScreenshot
    {
        /// nullopt if the question was sent without a screenshot.
        std::optional<qint64> index;

        bool operator==(const TurnScreenshot &) const = default;
    };
    struct Turn
    {
        QUuid id;
        QString prompt;
        QString response;
        QDateTime createdAt;
        /// nullopt in threads stored before this field existed.
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

    /// How many leading elements of each list were loaded from disk. They stay stored regardless of
    /// the cursors until the user removes them.
    struct StoredPart
    {
        qint64 screenshots = 0;
        qint64 notes = 0;
        qint64 turns = 0;
        QDateTime updatedAt;

        bool operator==(const StoredPart &) const = default;
    };
    /// The part of a thread that is stored on disk.
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
    /// Number of the next screenshot; numbers of removed screenshots are not reused.
    qint64 nextScreenshotIndex = 0;

    bool operator==(const CaptureSession &) const = default;

    /// Creates an empty thread with a new id.
    static CaptureSession create(const QDateTime &now = QDateTime::currentDateTime());

    void addScreenshot(const QByteArray &data, const QDateTime &capturedAt,
                       const QDateTime &now = QDateTime::currentDateTime());
    /// Puts a screenshot of this thread back under its number unless it is still there: a thread
    /// reopened from disk lacks the screenshots that were not kept.
    void restoreScreenshot(const Screenshot &screenshot);
    /// Removes the screenshot with number @p index; returns false if there is none.
    bool removeScreenshot(qint64 index);
    void addTurn(const QString &prompt, const QString &response, const QDateTime &createdAt,
                 const QDateTime &now = QDateTime::currentDateTime(),
                 const std::optional<TurnScreenshot> &screenshot = std::nullopt);
    /// Appends a note unless @p text is blank; starts note persistence from the beginning of the
    /// thread. Returns whether a note was added.
    bool addNote(const QString &text, const QDateTime &now = QDateTime::currentDateTime());
    /// Removes a note; returns false if there is none with this id.
    bool removeNote(const QUuid &noteId);

    void beginPersistingNotes();
    /// Keeps future turns and screenshots in addition to those already kept.
    /// @param stagedIndex number of the staged screenshot, which is kept as well
    void beginPersistingTurns(const std::optional<qint64> &stagedIndex = std::nullopt);
    void resumeTurnPersistingFromDisk();
    /// Records that the whole thread has just been loaded from disk.
    void markAsStored();
    /// Whether new entries will be kept on disk.
    bool isMarkedForPersistence() const
    {
        return notePersistenceCursor.has_value() || turnPersistenceCursor.has_value();
    }

    /// The part selected by the cursors, the stored part and the screenshots of kept turns.
    KeptPart keptPart() const;

    /// Default title: the first line of the first prompt, else of the first note, else
    /// "Screenshot".
    QString previewText() const;
    /// First line of @p text after trimming surrounding whitespace.
    static QString firstLine(const QString &text);

private:
    QList<Screenshot>::const_iterator findScreenshot(const std::optional<qint64> &index) const;
};

/// One entry of a thread's page.
using ThreadEntry = std::variant<CaptureSession::Note, CaptureSession::Turn>;

/// Notes and turns in time order; at equal times notes come first.
QList<ThreadEntry> chronologicalEntries(const CaptureSession &session);

} // namespace quellora
