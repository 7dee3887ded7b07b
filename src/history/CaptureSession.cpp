#include "history/CaptureSession.h"

#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <utility>

namespace quellora {

QString uuidText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

namespace {

/// The first @p stored elements plus those from index @p since on, if set.
template <typename T>
QList<T> selectKept(const QList<T> &list, qint64 stored, const std::optional<qint64> &since)
{
    QList<T> kept = list.mid(0, stored);
    if (since)
        kept += list.mid(std::clamp<qint64>(*since, kept.size(), list.size()));
    return kept;
}

/// Adjusts @p position after the element at index @p removed has been removed.
void shiftAfterRemoval(qint64 &position, qsizetype removed)
{
    if (removed < position)
        --position;
}

} // namespace

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
    screenshots.append({nextScreenshotIndex++, data, capturedAt});
    updatedAt = now;
}

QList<CaptureSession::Screenshot>::const_iterator
CaptureSession::findScreenshot(const std::optional<qint64> &index) const
{
    return std::find_if(screenshots.cbegin(), screenshots.cend(),
                        [&index](const auto &item) { return item.index == index; });
}

void CaptureSession::restoreScreenshot(const Screenshot &screenshot)
{
    if (findScreenshot(screenshot.index) == screenshots.cend())
        screenshots.append(screenshot);
    nextScreenshotIndex = std::max(nextScreenshotIndex, screenshot.index + 1);
}

bool CaptureSession::removeScreenshot(qint64 index)
{
    const auto found = findScreenshot(index);
    if (found == screenshots.cend())
        return false;
    const qsizetype position = found - screenshots.cbegin();
    screenshots.removeAt(position);
    if (storedPart)
        shiftAfterRemoval(storedPart->screenshots, position);
    if (notePersistenceCursor)
        shiftAfterRemoval(notePersistenceCursor->sinceScreenshotIndex, position);
    if (turnPersistenceCursor)
        shiftAfterRemoval(turnPersistenceCursor->sinceScreenshotIndex, position);
    return true;
}

void CaptureSession::addTurn(const QString &prompt, const QString &response,
                             const QDateTime &turnTime, const QDateTime &now,
                             const std::optional<TurnScreenshot> &screenshot)
{
    turns.append({QUuid::createUuid(), prompt, response, turnTime, screenshot});
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
    const auto found = std::find_if(notes.cbegin(), notes.cend(),
                                    [&noteId](const Note &note) { return note.id == noteId; });
    if (found == notes.cend())
        return false;
    const qsizetype position = found - notes.cbegin();
    notes.removeAt(position);
    if (storedPart)
        shiftAfterRemoval(storedPart->notes, position);
    if (notePersistenceCursor)
        shiftAfterRemoval(notePersistenceCursor->sinceNoteIndex, position);
    return true;
}

void CaptureSession::beginPersistingNotes()
{
    // The first note marks the whole thread for persistence, including earlier entries.
    if (!notePersistenceCursor)
        notePersistenceCursor = NotePersistenceCursor{0, 0};
}

void CaptureSession::beginPersistingTurns(const std::optional<qint64> &stagedIndex)
{
    TurnPersistenceCursor cursor{findScreenshot(stagedIndex) - screenshots.cbegin(), turns.size()};
    if (turnPersistenceCursor) {
        // A new cursor must not drop entries that an earlier one kept.
        cursor.sinceScreenshotIndex =
            std::min(cursor.sinceScreenshotIndex, turnPersistenceCursor->sinceScreenshotIndex);
        cursor.sinceTurnIndex =
            std::min(cursor.sinceTurnIndex, turnPersistenceCursor->sinceTurnIndex);
    }
    turnPersistenceCursor = cursor;
}

void CaptureSession::resumeTurnPersistingFromDisk()
{
    turnPersistenceCursor = TurnPersistenceCursor{0, 0};
}

void CaptureSession::markAsStored()
{
    storedPart = StoredPart{screenshots.size(), notes.size(), turns.size(), updatedAt};
}

CaptureSession::KeptPart CaptureSession::keptPart() const
{
    const StoredPart stored = storedPart.value_or(StoredPart());
    std::optional<qint64> sinceScreenshot;
    std::optional<qint64> sinceNote;
    std::optional<qint64> sinceTurn;
    if (notePersistenceCursor) {
        sinceNote = notePersistenceCursor->sinceNoteIndex;
        sinceScreenshot = notePersistenceCursor->sinceScreenshotIndex;
    }
    if (turnPersistenceCursor) {
        sinceTurn = turnPersistenceCursor->sinceTurnIndex;
        sinceScreenshot =
            std::min(sinceScreenshot.value_or(turnPersistenceCursor->sinceScreenshotIndex),
                     turnPersistenceCursor->sinceScreenshotIndex);
    }

    KeptPart kept;
    kept.notes = selectKept(notes, stored.notes, sinceNote);
    kept.turns = selectKept(turns, stored.turns, sinceTurn);
    // The screenshot of a kept turn is kept too, even if the question was sent before persistence
    // began.
    QSet<qint64> sent;
    for (const Turn &turn : std::as_const(kept.turns)) {
        if (turn.screenshot && turn.screenshot->index)
            sent.insert(*turn.screenshot->index);
    }
    for (qsizetype position = 0; position < screenshots.size(); ++position) {
        const Screenshot &screenshot = screenshots.at(position);
        if (position < stored.screenshots || (sinceScreenshot && position >= *sinceScreenshot) ||
            sent.contains(screenshot.index))
            kept.screenshots.append(screenshot);
    }
    kept.updatedAt = isMarkedForPersistence() || !storedPart ? updatedAt : stored.updatedAt;
    return kept;
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
    // A stable sort keeps notes before turns at equal times.
    std::stable_sort(
        entries.begin(), entries.end(),
        [&timeOf](const ThreadEntry &a, const ThreadEntry &b) { return timeOf(a) < timeOf(b); });
    return entries;
}

} // namespace quellora
