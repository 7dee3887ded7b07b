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
    /// Whether a version of a turn is kept on disk. Not stored.
    enum class Keeping {
        /// As its turn is.
        ByTurn,
        /// It was added to a kept turn while nothing more was to be kept.
        Never,
        /// It was added, while everything is kept, to a turn from before.
        Always,
    };
    /// One question and its answer. The same question asked again, or an edited one in its place,
    /// gives another version of the turn.
    struct TurnVersion
    {
        QString prompt;
        QString response;
        QDateTime createdAt;
        /// nullopt in threads stored before this field existed.
        std::optional<TurnScreenshot> screenshot = std::nullopt;
        Keeping keeping = Keeping::ByTurn;

        bool operator==(const TurnVersion &) const = default;
    };
    /// The most versions that a turn may have.
    static constexpr qsizetype maximumVersions = 100;
    struct Turn
    {
        QUuid id;
        QString prompt;
        QString response;
        QDateTime createdAt;
        /// nullopt in threads stored before this field existed.
        std::optional<TurnScreenshot> screenshot = std::nullopt;
        Keeping keeping = Keeping::ByTurn;
        /// The versions that are not on show, oldest first. The fields above are those of the one
        /// on show, so that whoever knows nothing of versions sees just that one.
        QList<TurnVersion> otherVersions = {};
        /// Position of the version on show among all versions.
        qsizetype shownVersion = 0;

        qsizetype versionCount() const { return otherVersions.size() + 1; }
        /// All versions, oldest first.
        QList<TurnVersion> versions() const;
        /// Replaces all versions; @p versions is not empty, @p shown is a position in it.
        void setVersions(QList<TurnVersion> versions, qsizetype shown);
        /// The time of the oldest version, which is the turn's place among the thread's entries.
        QDateTime askedAt() const;

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
    void addTurn(const QString &prompt, const QString &response, const QDateTime &turnTime,
                 const QDateTime &now = QDateTime::currentDateTime(),
                 const std::optional<TurnScreenshot> &screenshot = std::nullopt);
    /// Adds the newest version of a turn. It is kept on disk if further entries are, whatever
    /// happens to the earlier versions. Returns false if there is no such turn or it has the most
    /// versions already.
    /// @param isShown puts it on show
    bool addVersion(const QUuid &turnId, TurnVersion version, bool isShown,
                    const QDateTime &now = QDateTime::currentDateTime());
    /// Puts the version at @p position on show; returns false if there is none, or it is on show.
    bool showVersion(const QUuid &turnId, qsizetype position);
    /// The turn with this id; nullptr if there is none.
    const Turn *findTurn(const QUuid &turnId) const;
    /// Appends a note unless @p text is blank; starts note persistence from the beginning of the
    /// thread. Returns whether a note was added.
    bool addNote(const QString &text, const QDateTime &now = QDateTime::currentDateTime());
    /// Removes a note; returns false if there is none with this id.
    bool removeNote(const QUuid &noteId);
    /// Whether the note at @p position was loaded from disk.
    bool isNoteStored(qsizetype position) const
    {
        return storedPart && position < storedPart->notes;
    }
    /// Puts a removed note back at its former position, or as near to it as there are notes.
    /// @param wasStored whether isNoteStored() was true of it
    void restoreNote(const Note &note, qsizetype position, bool wasStored);

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
    /// Whether the stored part and the cursors select the turn at @p position.
    bool isTurnKept(qsizetype position) const;
    QList<Screenshot>::const_iterator findScreenshot(const std::optional<qint64> &index) const;
};

/// One entry of a thread's page.
using ThreadEntry = std::variant<CaptureSession::Note, CaptureSession::Turn>;

/// The screenshot that went with a turn. Where that was not recorded, the latest one taken after
/// the turn before it was finished and before it was finished itself. Nothing for a turn that is
/// not in the thread.
std::optional<CaptureSession::Screenshot> screenshotOfTurn(const CaptureSession &session,
                                                           const QUuid &turnId);

/// Notes and turns in time order; at equal times notes come first. A turn stays in its place
/// whichever version is on show.
QList<ThreadEntry> chronologicalEntries(const CaptureSession &session);

} // namespace quellora
