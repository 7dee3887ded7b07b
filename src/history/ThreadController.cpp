#include "history/ThreadController.h"

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

const QString saveFailure =
    QStringLiteral("[OverlayWindowController] ERROR: Failed to save session to disk: ");
const QString commitFailure = QStringLiteral(
    "[OverlayWindowController] ERROR: Failed to commit thread before starting a new one: ");

} // namespace

ThreadController::ThreadController(const Settings &settings, ThreadSaver *saver, Clock clock,
                                   QObject *parent)
    : QObject(parent), m_settings(settings), m_saver(saver), m_clock(std::move(clock))
{
    connect(&m_settings, &Settings::keepAIHistoryEnabledChanged, this,
            &ThreadController::markForPersistence);
    if (m_saver)
        connect(m_saver, &ThreadSaver::stateChanged, this, &ThreadController::onSaveStateChanged);
}

SaveState ThreadController::saveState() const
{
    if (!m_saver || !m_current)
        return {};
    SaveState state = m_saver->stateOf(m_current->id);
    if (state.kind == SaveState::Kind::Failed)
        return state;
    // A thread that is not marked is saved only when the user deletes something from it; an empty
    // one is not stored at all.
    if (!m_current->isMarkedForPersistence() || m_current->keptPart().isEmpty())
        return {};
    if (state.kind == SaveState::Kind::None && m_loadedFromHistory)
        state.kind = SaveState::Kind::Saved;
    return state;
}

void ThreadController::retrySaving()
{
    if (saveState().kind == SaveState::Kind::Failed)
        save(*m_current, saveFailure);
}

void ThreadController::onSaveStateChanged(const QUuid &threadId)
{
    const SaveState state = m_saver->stateOf(threadId);
    const bool isCurrent = m_current && m_current->id == threadId;
    if (state.kind == SaveState::Kind::Failed && isCurrent)
        restoreNotes(state.reason);
    else if (state.kind != SaveState::Kind::Saving)
        m_removedNotes.removeIf(
            [&](const RemovedNote &removed) { return removed.threadId == threadId; });
    if (isCurrent)
        Q_EMIT saveStateChanged();
}

void ThreadController::restoreNotes(const QString &reason)
{
    const QList<RemovedNote> removed = std::exchange(m_removedNotes, {});
    CaptureSession session = *m_current;
    bool isRestored = false;
    // In reverse order of removal, so that each recorded position is valid again.
    for (auto it = removed.crbegin(); it != removed.crend(); ++it) {
        if (it->threadId != session.id)
            continue;
        session.restoreNote(it->note, it->position, it->wasStored);
        // Notes set aside later were counted without it.
        for (RemovedNote &aside : m_asideNotes) {
            if (aside.threadId == session.id && aside.position >= it->position)
                ++aside.position;
        }
        isRestored = true;
    }
    if (!isRestored)
        return;
    // The next save writes the thread as shown, with its notes.
    setSessionAfterRemoval(session);
    Q_EMIT noteDeletionFailed(reason);
}

void ThreadController::markForPersistence()
{
    if (!m_settings.keepAIHistoryEnabled() || !m_current)
        return;
    CaptureSession session = *m_current;
    if (m_loadedFromHistory)
        session.resumeTurnPersistingFromDisk();
    else
        session.beginPersistingTurns(stagedIndex());
    setCurrentSession(session);
}

CaptureSession ThreadController::takeOrCreate()
{
    return m_current ? *m_current : CaptureSession::create(m_clock());
}

CaptureSession ThreadController::threadForQuery()
{
    if (m_endsAtNextSend && m_settings.startNewThreadPerSendEnabled())
        beginNextThread();
    m_endsAtNextSend = false;
    return threadForRetry();
}

CaptureSession ThreadController::threadForRetry()
{
    CaptureSession session = takeOrCreate();
    markForQuery(session);
    return session;
}

void ThreadController::beginNextThread()
{
    CaptureSession next = CaptureSession::create(m_clock());
    CaptureSession ending = *m_current;
    if (m_staged) {
        ending.removeScreenshot(m_staged->index);
        next.addScreenshot(m_staged->imageData, m_staged->capturedAt, m_clock());
        m_staged = next.screenshots.constLast();
        markForQuery(next);
        // Save it in the new thread before removing it from the old one.
        saveIfNeeded(next, saveFailure);
    }
    saveIfNeeded(ending, commitFailure);
    m_current = ending;
    resetCurrentThread();
    m_current = next;
    Q_EMIT sessionChanged();
}

void ThreadController::markForQuery(CaptureSession &session) const
{
    if (!m_settings.keepAIHistoryEnabled() || session.turnPersistenceCursor)
        return;
    if (m_loadedFromHistory && m_current && m_current->id == session.id)
        session.resumeTurnPersistingFromDisk();
    else
        session.beginPersistingTurns(stagedIndex());
}

std::optional<qint64> ThreadController::stagedIndex() const
{
    return m_staged ? std::optional(m_staged->index) : std::nullopt;
}

void ThreadController::setCurrentSession(const CaptureSession &session)
{
    if (!m_current || m_current->id != session.id)
        resetCurrentThread();
    m_current = session;
    saveIfNeeded(*m_current, saveFailure);
    Q_EMIT sessionChanged();
}

void ThreadController::setSessionAfterRemoval(const CaptureSession &session)
{
    setCurrentSession(session);
    saveAfterRemoval(session);
}

void ThreadController::saveAfterRemoval(const CaptureSession &session)
{
    // Deletions are saved even while additions are not.
    if (m_saver && session.storedPart && !session.isMarkedForPersistence())
        save(session, saveFailure);
}

void ThreadController::stageScreenshot(const QByteArray &jpeg)
{
    CaptureSession session = takeOrCreate();
    session.addScreenshot(jpeg, m_clock(), m_clock());
    setCurrentSession(session);
    m_staged = session.screenshots.constLast();
    Q_EMIT stagedScreenshotChanged();
}

void ThreadController::clearStagedScreenshot()
{
    if (!m_staged)
        return;
    m_staged.reset();
    Q_EMIT stagedScreenshotChanged();
}

void ThreadController::removeStagedScreenshot()
{
    if (!m_staged)
        return;
    const qint64 index = m_staged->index;
    clearStagedScreenshot();
    CaptureSession session = *m_current;
    if (!session.removeScreenshot(index))
        return;
    setSessionAfterRemoval(session);
    Q_EMIT screenshotRemoved(session.id, index);
}

bool ThreadController::addTurn(const QUuid &threadId, const QString &prompt,
                               const QString &response,
                               const std::optional<CaptureSession::Screenshot> &screenshot)
{
    return addAnswer(threadId, screenshot, [&, now = m_clock()](auto &session, const auto &link) {
        session.addTurn(prompt, response, now, now, link);
    });
}

bool ThreadController::addVersion(const QUuid &threadId, const QUuid &turnId, const QString &prompt,
                                  const QString &response,
                                  const std::optional<CaptureSession::Screenshot> &screenshot,
                                  bool isShown)
{
    return addAnswer(threadId, screenshot, [&, now = m_clock()](auto &session, const auto &link) {
        if (!session.addVersion(turnId, {prompt, response, now, link}, isShown, now))
            session.addTurn(prompt, response, now, now, link);
    });
}

bool ThreadController::showVersion(const QUuid &turnId, qsizetype position)
{
    if (!m_current)
        return false;
    CaptureSession session = *m_current;
    if (!session.showVersion(turnId, position))
        return false;
    setCurrentSession(session);
    return true;
}

bool ThreadController::addAnswer(
    const QUuid &threadId, const std::optional<CaptureSession::Screenshot> &screenshot,
    const std::function<void(CaptureSession &, const CaptureSession::TurnScreenshot &)> &add)
{
    const auto addTo = [&](CaptureSession &session) {
        CaptureSession::TurnScreenshot link;
        if (screenshot) {
            session.restoreScreenshot(*screenshot);
            link.index = screenshot->index;
        }
        add(session, link);
    };
    if (m_current && m_current->id == threadId) {
        CaptureSession session = *m_current;
        addTo(session);
        setCurrentSession(session);
        return true;
    }
    if (auto it = m_retained.find(threadId); it != m_retained.end() && it->ended) {
        addTo(*it->ended);
        saveIfNeeded(*it->ended, saveFailure);
        Q_EMIT endedThreadChanged(threadId);
    }
    return false;
}

void ThreadController::retain(const QUuid &threadId)
{
    ++m_retained[threadId].users;
}

void ThreadController::release(const QUuid &threadId)
{
    const auto it = m_retained.find(threadId);
    if (it == m_retained.end() || --it->users > 0)
        return;
    // What was added meanwhile comes back with the thread.
    if (const auto aside = m_aside.find(threadId);
        it->ended && aside != m_aside.end() && aside->current)
        aside->current->session = *it->ended;
    m_retained.erase(it);
}

bool ThreadController::addNote(const QString &text)
{
    CaptureSession session = takeOrCreate();
    if (!session.addNote(text, m_clock()))
        return false;
    setCurrentSession(session);
    clearStagedScreenshot();
    return true;
}

const CaptureSession *ThreadController::find(const QUuid &threadId) const
{
    if (m_current && m_current->id == threadId)
        return &*m_current;
    const auto it = m_retained.constFind(threadId);
    return it != m_retained.cend() && it->ended ? &*it->ended : nullptr;
}

void ThreadController::replaceAndSave(const CaptureSession &session)
{
    if (m_current && m_current->id == session.id) {
        setSessionAfterRemoval(session);
        return;
    }
    m_retained[session.id].ended = session;
    saveIfNeeded(session, saveFailure);
    saveAfterRemoval(session);
    Q_EMIT endedThreadChanged(session.id);
}

bool ThreadController::setNoteAside(const QUuid &noteId)
{
    if (!m_current)
        return false;
    const QList<CaptureSession::Note> &notes = m_current->notes;
    const auto note =
        std::find_if(notes.cbegin(), notes.cend(),
                     [&noteId](const CaptureSession::Note &each) { return each.id == noteId; });
    if (note == notes.cend())
        return false;
    const qsizetype position = std::distance(notes.cbegin(), note);
    m_asideNotes.append({m_current->id, position, *note, m_current->isNoteStored(position)});
    retain(m_current->id);
    m_current->removeNote(noteId);
    Q_EMIT sessionChanged();
    return true;
}

std::optional<ThreadController::RemovedNote> ThreadController::takeAsideNote(const QUuid &noteId)
{
    for (auto it = m_asideNotes.begin(); it != m_asideNotes.end(); ++it) {
        if (it->note.id == noteId) {
            RemovedNote aside = *it;
            m_asideNotes.erase(it);
            return aside;
        }
    }
    return std::nullopt;
}

bool ThreadController::restoreNote(const QUuid &noteId)
{
    const auto aside = takeAsideNote(noteId);
    if (!aside)
        return false;
    if (const CaptureSession *thread = find(aside->threadId)) {
        CaptureSession session = *thread;
        session.restoreNote(aside->note, aside->position, aside->wasStored);
        replaceAndSave(session);
    }
    release(aside->threadId);
    return m_current && m_current->id == aside->threadId;
}

bool ThreadController::removeNote(const QUuid &noteId)
{
    setNoteAside(noteId);
    const auto aside = takeAsideNote(noteId);
    if (!aside)
        return false;
    if (const CaptureSession *thread = find(aside->threadId)) {
        const CaptureSession session = *thread;
        if (m_saver && (session.isMarkedForPersistence() || session.storedPart))
            m_removedNotes.append(*aside);
        replaceAndSave(session);
    }
    release(aside->threadId);
    return true;
}

bool ThreadController::setAside(const QUuid &threadId)
{
    SetAside &aside = m_aside[threadId];
    if (!m_current || m_current->id != threadId)
        return false;
    aside.current = Current{*m_current, m_staged, m_loadedFromHistory, m_endsAtNextSend};
    resetCurrentThread();
    clearStagedScreenshot();
    Q_EMIT sessionChanged();
    return true;
}

bool ThreadController::canReplaceCurrent() const
{
    return !m_current || (m_current->notes.isEmpty() && m_current->turns.isEmpty() &&
                          m_current->screenshots.isEmpty() && !m_retained.contains(m_current->id));
}

bool ThreadController::bringBack(const QUuid &threadId)
{
    const SetAside aside = m_aside.take(threadId);
    if (aside.save)
        save(aside.save->session, aside.save->failurePrefix);
    if (!aside.current || !canReplaceCurrent())
        return false;
    // An answer may have been added since.
    const CaptureSession *ended = find(threadId);
    const CaptureSession session = ended ? *ended : aside.current->session;
    resetCurrentThread();
    m_current = session;
    m_loadedFromHistory = aside.current->isLoadedFromHistory;
    m_endsAtNextSend = aside.current->endsAtNextSend;
    m_staged = aside.current->staged;
    Q_EMIT sessionChanged();
    if (m_staged)
        Q_EMIT stagedScreenshotChanged();
    return true;
}

void ThreadController::forget(const QUuid &threadId)
{
    m_aside.remove(threadId);
    if (auto it = m_retained.find(threadId); it != m_retained.end())
        it->ended.reset();
}

QSet<QUuid> ThreadController::threadsInUse() const
{
    QSet<QUuid> threads{m_aside.keyBegin(), m_aside.keyEnd()};
    for (auto it = m_retained.keyBegin(); it != m_retained.keyEnd(); ++it)
        threads.insert(*it);
    if (m_current)
        threads.insert(m_current->id);
    return threads;
}

void ThreadController::setCustomTitle(const QUuid &threadId, const std::optional<QString> &title)
{
    if (auto it = m_retained.find(threadId); it != m_retained.end() && it->ended)
        it->ended->customTitle = title;
    if (!m_current || m_current->id != threadId)
        return;
    m_current->customTitle = title;
    Q_EMIT sessionChanged();
}

void ThreadController::openFromHistory(const CaptureSession &session)
{
    endCurrentThread();
    CaptureSession opened = session;
    opened.markAsStored();
    for (RemovedNote &aside : m_asideNotes) {
        // On disk it is still in its thread.
        if (aside.threadId == opened.id && opened.removeNote(aside.note.id))
            aside.wasStored = true;
    }
    opened.nextScreenshotIndex =
        std::max(opened.nextScreenshotIndex, m_nextScreenshotIndex.value(opened.id));
    if (m_settings.keepAIHistoryEnabled())
        opened.resumeTurnPersistingFromDisk();
    m_current = opened;
    m_loadedFromHistory = true;
    Q_EMIT sessionChanged();
}

void ThreadController::endCurrentThread()
{
    if (m_current)
        saveIfNeeded(*m_current, commitFailure);
    resetCurrentThread();
    clearStagedScreenshot();
    Q_EMIT sessionChanged();
}

void ThreadController::resetCurrentThread()
{
    if (m_current) {
        m_nextScreenshotIndex.insert(m_current->id, m_current->nextScreenshotIndex);
        if (auto it = m_retained.find(m_current->id); it != m_retained.end())
            it->ended = *m_current;
    }
    m_current.reset();
    m_loadedFromHistory = false;
    m_endsAtNextSend = false;
}

void ThreadController::endThreadAtNextSend()
{
    m_endsAtNextSend = m_current.has_value();
}

void ThreadController::continueThread()
{
    m_endsAtNextSend = false;
}

void ThreadController::startNewThread()
{
    endCurrentThread();
    m_current = CaptureSession::create(m_clock());
    Q_EMIT sessionChanged();
}

void ThreadController::saveIfNeeded(const CaptureSession &session, const QString &failurePrefix)
{
    if (m_saver && session.isMarkedForPersistence())
        save(session, failurePrefix);
}

void ThreadController::save(CaptureSession session, const QString &failurePrefix)
{
    if (const auto aside = m_aside.find(session.id); aside != m_aside.end()) {
        aside->save = DeferredSave{std::move(session), failurePrefix};
        return;
    }
    // In reverse order of removal, so that each recorded position is valid again.
    for (auto it = m_asideNotes.crbegin(); it != m_asideNotes.crend(); ++it) {
        if (it->threadId == session.id)
            session.restoreNote(it->note, it->position, it->wasStored);
    }
    m_saver->save(session, failurePrefix);
}

} // namespace quellora
