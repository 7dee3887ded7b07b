#pragma once

#include "history/StoreFixture.h"

namespace quellora {

/// A thread whose every state can be told from the number of its turns: what was found on the disk
/// after a crash must be one of them.
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

/// The next state: one more turn, with every fourth also a screenshot and a note.
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
