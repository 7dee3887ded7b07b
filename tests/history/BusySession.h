#pragma once

#include "history/GrowingThread.h"

#include <array>
#include <optional>

namespace quellora {

/// A user's session as a sequence of numbered steps on a few threads: questions, notes, renaming,
/// deleting. A state is determined by the number of steps, so that a test can verify what is found
/// on disk after a crash.
struct BusySession
{
    /// nullopt for a thread that is deleted or not begun.
    std::array<std::optional<CaptureSession>, 3> threads;

    static QUuid idOf(std::size_t thread)
    {
        return QUuid::createUuidV5(QUuid(), QByteArray::number(qlonglong(thread)));
    }
    static std::size_t threadOf(int step) { return std::size_t(step) % 3; }

    /// Takes the step with this number, which starts at 0.
    /// @param store where it is stored; nullptr for nowhere
    /// @return whether the store did it
    bool take(int step, const CaptureSessionStore *store)
    {
        const std::size_t number = threadOf(step);
        auto &thread = threads.at(number);
        if (!thread)
            thread = growingThread(idOf(number));
        const int kind = step / 3 % 7;
        if (kind == 6) {
            thread.reset();
            return !store || store->remove(idOf(number));
        }
        if (kind == 3) {
            thread->customTitle = QString::number(step);
            return !store || store->updateTitle(thread->id, thread->customTitle);
        }
        if (kind == 5 && !thread->notes.isEmpty()) {
            const QUuid note = thread->notes.last().id;
            thread->removeNote(note);
        } else {
            grow(*thread);
        }
        return !store || store->save(*thread);
    }

    /// The state after this many steps.
    static BusySession after(int steps)
    {
        BusySession session;
        for (int step = 0; step < steps; ++step)
            session.take(step, nullptr);
        return session;
    }
};

} // namespace quellora
