#pragma once

#include "history/StoreFixture.h"

namespace quellora {

/// A thread whose state is determined by its number of turns, so that a test can verify that the
/// thread found on disk after a crash is one of the saved states.
inline CaptureSession growingThread(const QUuid &id)
{
    CaptureSession session;
    session.id = id;
    session.createdAt = t0;
    session.updatedAt = t0;
    session.resumeTurnPersistingFromDisk();
    session.beginPersistingNotes();
    return session;
}

/// Advances to the next state: adds a turn, and with every fourth one a screenshot and a note.
inline void grow(CaptureSession &session)
{
    const int step = static_cast<int>(session.turns.size()) + 1;
    const QDateTime time = t0.addSecs(step);
    const auto letter = static_cast<char>('a' + step % 26);
    if (step % 4 == 1) {
        session.addScreenshot(QByteArray(40'000 + step, letter), time, time);
        session.notes.append({QUuid::createUuidV5(session.id, QByteArray::number(-step)),
                              QString::number(step), time});
    }
    session.turns.append({QUuid::createUuidV5(session.id, QByteArray::number(step)),
                          QString::number(step), QString(step * 97 % 4000, letter), time});
    session.updatedAt = time;
}

} // namespace quellora
