#include "history/CaptureSession.h"

#include <QRegularExpression>

#include <algorithm>
#include <limits>
#include <utility>

namespace quellora {

QString uuidText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

std::optional<QUuid> uuidFromText(const QString &text)
{
    const QUuid id(text);
    return uuidText(id) == text.toUpper() ? std::optional(id) : std::nullopt;
}

CaptureSession CaptureSession::create(const QDateTime &now)
{
    CaptureSession session;
    session.id = QUuid::createUuid();
    session.createdAt = now;
    session.updatedAt = now;
    return session;
}

void CaptureSession::addScreenshot(const QByteArray &data, const QDateTime &capturedAt,
                                   const QDateTime &now)
{
    // The number of screenshots, unless a thread that was kept from a later one on came back from
    // the disk: a number that is taken would name the file of another picture.
    qint64 index = screenshots.size();
    for (const auto &screenshot : std::as_const(screenshots)) {
        if (screenshot.index >= index && screenshot.index < std::numeric_limits<qint64>::max())
            index = screenshot.index + 1;
    }
    screenshots.append({index, data, capturedAt});
    updatedAt = now;
}

void CaptureSession::addTurn(const QString &prompt, const QString &response,
                             const QDateTime &turnTime, const QDateTime &now)
{
    turns.append({QUuid::createUuid(), prompt, response, turnTime});
    updatedAt = now;
}

bool CaptureSession::addNote(const QString &text, const QDateTime &now)
{
    if (text.trimmed().isEmpty())
        return false;
    beginPersistingNotes();
    notes.append({QUuid::createUuid(), text, now});
    updatedAt = now;
    return true;
}

bool CaptureSession::removeNote(const QUuid &noteId)
{
    return notes.removeIf([&noteId](const Note &note) { return note.id == noteId; }) > 0;
}

void CaptureSession::beginPersistingNotes()
{
    // From the very beginning: a thread worth a note is worth keeping whole.
    if (!notePersistenceCursor)
        notePersistenceCursor = NotePersistenceCursor{0, 0};
}

void CaptureSession::beginPersistingTurns()
{
    turnPersistenceCursor = TurnPersistenceCursor{screenshots.size(), turns.size()};
}

void CaptureSession::resumeTurnPersistingFromDisk()
{
    turnPersistenceCursor = TurnPersistenceCursor{0, 0};
}

QString CaptureSession::previewText() const
{
    if (!turns.isEmpty())
        return firstLine(turns.constFirst().prompt);
    if (!notes.isEmpty())
        return firstLine(notes.constFirst().text);
    return QStringLiteral("Screenshot");
}

QString CaptureSession::firstLine(const QString &text)
{
    static const QRegularExpression lineBreak(QStringLiteral("\r\n|[\n\v\f\r\u0085\u2028\u2029]"));
    return text.trimmed().section(lineBreak, 0, 0);
}

QList<ThreadEntry> chronologicalEntries(const CaptureSession &session)
{
    QList<ThreadEntry> entries;
    entries.reserve(session.notes.size() + session.turns.size());
    for (const auto &note : session.notes)
        entries.append(note);
    for (const auto &turn : session.turns)
        entries.append(turn);
    const auto timeOf = [](const ThreadEntry &entry) {
        return std::visit([](const auto &item) { return item.createdAt; }, entry);
    };
    // Stable: at equal times the note, which was there first in the list, stays first.
    std::stable_sort(
        entries.begin(), entries.end(),
        [&timeOf](const ThreadEntry &a, const ThreadEntry &b) { return timeOf(a) < timeOf(b); });
    return entries;
}

} // namespace quellora
