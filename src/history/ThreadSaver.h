#pragma once

#include "history/CaptureSession.h"

#include <QHash>
#include <QObject>

namespace quellora {

/// State of a thread's latest save.
struct SaveState
{
    enum class Kind {
        /// Never saved.
        None,
        Saving,
        Saved,
        Failed,
    };

    Kind kind = Kind::None;
    /// Reason of a failure, shown to the user.
    QString reason;

    bool operator==(const SaveState &) const = default;
};

/// Saves threads marked for persistence. Main thread only.
class ThreadSaver : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Saves the kept part of @p session, synchronously or queued in call order; a failure is
    /// logged as @p failurePrefix followed by its description.
    virtual void save(const CaptureSession &session, const QString &failurePrefix) = 0;

    SaveState stateOf(const QUuid &threadId) const { return m_states.value(threadId); }

Q_SIGNALS:
    /// stateOf() changed for this thread, or another save of it ended in the same state.
    void stateChanged(const QUuid &threadId);

protected:
    void setState(const QUuid &threadId, const SaveState &state)
    {
        m_states.insert(threadId, state);
        Q_EMIT stateChanged(threadId);
    }
    void forgetState(const QUuid &threadId) { m_states.remove(threadId); }

private:
    QHash<QUuid, SaveState> m_states;
};

} // namespace quellora
