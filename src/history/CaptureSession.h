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
/// the cursors that say from where on each kind is kept on disk. A value type.
struct CaptureSession
{
    struct Screenshot
    {
        /// Position at the time of adding (the next free number in a thread that was stored from
        /// a later screenshot on); also the number in its file name, never renumbered.
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
    struct Turn
    {
        QUuid id;
        QString prompt;
        QString response;
        QDateTime createdAt;

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

    QUuid id;
    QList<Screenshot> screenshots;
    QList<Note> notes;
    QList<Turn> turns;
    QDateTime createdAt;
    QDateTime updatedAt;
    std::optional<NotePersistenceCursor> notePersistenceCursor;
    std::optional<TurnPersistenceCursor> turnPersistenceCursor;
    std::optional<QString> customTitle;

    bool operator==(const CaptureSession &) const = default;

    /// A new, empty thread with a fresh id.
    static CaptureSession create(const QDateTime &now = QDateTime::currentDateTime());

    void addScreenshot(const QByteArray &data, const QDateTime &capturedAt,
                       const QDateTime &now = QDateTime::currentDateTime());
    void addTurn(const QString &prompt, const QString &response, const QDateTime &createdAt,
                 const QDateTime &now = QDateTime::currentDateTime());
    /// Appends a note unless @p text is blank; starts note persistence from the beginning of the
    /// thread. Returns whether a note was added.
    bool addNote(const QString &text, const QDateTime &now = QDateTime::currentDateTime());
    /// Removes the note with that id, if any; returns whether there was one.
    bool removeNote(const QUuid &noteId);

    void beginPersistingNotes();
    void beginPersistingTurns();
    void resumeTurnPersistingFromDisk();
    bool isMarkedForPersistence() const
    {
        return notePersistenceCursor.has_value() || turnPersistenceCursor.has_value();
    }

    /// Title of a thread without a custom one: first line of the first prompt, else of the first
    /// note, else "Screenshot".
    QString previewText() const;
    /// First line of @p text after trimming white space and line breaks at both ends.
    static QString firstLine(const QString &text);
};

/// One item of a thread page.
using ThreadEntry = std::variant<CaptureSession::Note, CaptureSession::Turn>;

/// Notes and turns in time order; at equal times notes come first.
QList<ThreadEntry> chronologicalEntries(const CaptureSession &session);

} // namespace quellora
