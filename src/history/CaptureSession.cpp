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

/// The versions of a turn that are kept on disk; nullopt if none is. On show is the same one or,
/// where that is not kept, the newest of them.
std::optional<CaptureSession::Turn> keptVersions(const CaptureSession::Turn &turn, bool isTurnKept)
{
    using Keeping = CaptureSession::Keeping;
    const QList<CaptureSession::TurnVersion> versions = turn.versions();
    QList<CaptureSession::TurnVersion> kept;
    std::optional<qsizetype> shown;
    for (qsizetype position = 0; position < versions.size(); ++position) {
        const Keeping keeping = versions.at(position).keeping;
        if (keeping != Keeping::Always && (keeping == Keeping::Never || !isTurnKept))
            continue;
        if (position == turn.shownVersion)
            shown = kept.size();
        kept.append(versions.at(position));
    }
    if (kept.isEmpty())
        return std::nullopt;
    CaptureSession::Turn result = turn;
    result.setVersions(kept, shown.value_or(kept.size() - 1));
    return result;
}

/// Adjusts @p position after the element at index @p removed has been removed.
void shiftAfterRemoval(qint64 &position, qsizetype removed)
{
    if (removed < position)
        --position;
}

} // namespace

QList<CaptureSession::TurnVersion> CaptureSession::Turn::versions() const
{
    QList<TurnVersion> all = otherVersions;
    all.insert(shownVersion, {prompt, response, createdAt, screenshot, keeping});
    return all;
}

void CaptureSession::Turn::setVersions(QList<TurnVersion> versions, qsizetype shown)
{
    const TurnVersion version = versions.takeAt(shown);
    prompt = version.prompt;
    response = version.response;
    createdAt = version.createdAt;
    screenshot = version.screenshot;
    keeping = version.keeping;
    otherVersions = std::move(versions);
    shownVersion = shown;
}

QDateTime CaptureSession::Turn::askedAt() const
{
    return otherVersions.isEmpty() ? createdAt
                                   : std::min(createdAt, otherVersions.constFirst().createdAt);
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

const CaptureSession::Turn *CaptureSession::findTurn(const QUuid &turnId) const
{
    const auto found = std::find_if(turns.cbegin(), turns.cend(),
                                    [&turnId](const Turn &turn) { return turn.id == turnId; });
    return found == turns.cend() ? nullptr : &*found;
}

bool CaptureSession::addVersion(const QUuid &turnId, TurnVersion version, bool isShown,
                                const QDateTime &now)
{
    const Turn *turn = findTurn(turnId);
    if (!turn || turn->versionCount() >= maximumVersions)
        return false;
    const qsizetype position = turn - turns.constData();
    QList<TurnVersion> versions = turn->versions();
    // By its time the screenshot of the earlier version would be found no longer.
    if (!turn->screenshot) {
        const auto screenshot = screenshotOfTurn(*this, turnId);
        versions[turn->shownVersion].screenshot =
            TurnScreenshot{screenshot ? std::optional(screenshot->index) : std::nullopt};
    }
    const bool isKept = turnPersistenceCursor.has_value();
    version.keeping = isKept == isTurnKept(position) ? Keeping::ByTurn
                      : isKept                       ? Keeping::Always
                                                     : Keeping::Never;
    const qsizetype shown = isShown ? versions.size() : turn->shownVersion;
    versions.append(std::move(version));
    turns[position].setVersions(std::move(versions), shown);
    updatedAt = now;
    return true;
}

bool CaptureSession::showVersion(const QUuid &turnId, qsizetype position)
{
    const Turn *turn = findTurn(turnId);
    if (!turn || position < 0 || position >= turn->versionCount() || position == turn->shownVersion)
        return false;
    turns[turn - turns.constData()].setVersions(turn->versions(), position);
    return true;
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

void CaptureSession::restoreNote(const Note &note, qsizetype position, bool wasStored)
{
    const bool isStored = wasStored && storedPart;
    const qsizetype end = isStored ? storedPart->notes : notes.size();
    notes.insert(std::clamp<qsizetype>(position, 0, end), note);
    if (isStored)
        ++storedPart->notes;
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

bool CaptureSession::isTurnKept(qsizetype position) const
{
    return (storedPart && position < storedPart->turns) ||
           (turnPersistenceCursor && position >= turnPersistenceCursor->sinceTurnIndex);
}

void CaptureSession::resumeTurnPersistingFromDisk()
{
    // The whole thread is kept, its versions included.
    for (Turn &turn : turns) {
        turn.keeping = Keeping::ByTurn;
        for (TurnVersion &version : turn.otherVersions)
            version.keeping = Keeping::ByTurn;
    }
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
    if (notePersistenceCursor) {
        sinceNote = notePersistenceCursor->sinceNoteIndex;
        sinceScreenshot = notePersistenceCursor->sinceScreenshotIndex;
    }
    if (turnPersistenceCursor) {
        sinceScreenshot =
            std::min(sinceScreenshot.value_or(turnPersistenceCursor->sinceScreenshotIndex),
                     turnPersistenceCursor->sinceScreenshotIndex);
    }

    KeptPart kept;
    kept.notes = selectKept(notes, stored.notes, sinceNote);
    for (qsizetype position = 0; position < turns.size(); ++position) {
        if (const auto turn = keptVersions(turns.at(position), isTurnKept(position)))
            kept.turns.append(*turn);
    }
    // The screenshot of a kept turn is kept too, even if the question was sent before persistence
    // began.
    QSet<qint64> sent;
    for (const Turn &turn : std::as_const(kept.turns)) {
        for (const TurnVersion &version : turn.versions()) {
            if (version.screenshot && version.screenshot->index)
                sent.insert(*version.screenshot->index);
        }
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

std::optional<CaptureSession::Screenshot> screenshotOfTurn(const CaptureSession &session,
                                                           const QUuid &turnId)
{
    QDateTime previousEnd;
    for (const CaptureSession::Turn &turn : session.turns) {
        if (turn.id != turnId) {
            previousEnd = turn.createdAt;
            continue;
        }
        std::optional<CaptureSession::Screenshot> found;
        for (const CaptureSession::Screenshot &screenshot : session.screenshots) {
            const bool isInTime = (!previousEnd.isValid() || screenshot.capturedAt > previousEnd) &&
                                  screenshot.capturedAt <= turn.createdAt;
            if (turn.screenshot ? turn.screenshot->index == screenshot.index : isInTime)
                found = screenshot;
        }
        return found;
    }
    return std::nullopt;
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
        const auto *turn = std::get_if<CaptureSession::Turn>(&entry);
        return turn ? turn->askedAt() : std::get<CaptureSession::Note>(entry).createdAt;
    };
    // A stable sort keeps notes before turns at equal times.
    std::stable_sort(
        entries.begin(), entries.end(),
        [&timeOf](const ThreadEntry &a, const ThreadEntry &b) { return timeOf(a) < timeOf(b); });
    return entries;
}

} // namespace quellora
