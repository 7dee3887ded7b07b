#pragma once

#include "history/CaptureSession.h"

#include <QHash>
#include <QObject>

namespace quellora {

/// How the latest save of a thread went.
struct SaveState
{
    enum class Kind {
        /// Nothing was saved yet.
        None,
        Saving,
        Saved,
        Failed,
    };

    Kind kind = Kind::None;
    /// Why, for Failed; for the user.
    QString reason;

    bool operator==(const SaveState &) const = default;
};

/// Where threads that are marked for persistence go. Main thread only.
class ThreadSaver : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Stores the kept part of @p session, now or in the order of the calls; a failure is logged
    /// as @p failurePrefix and its description.
    virtual void save(const CaptureSession &session, const QString &failurePrefix) = 0;

    SaveState stateOf(const QUuid &threadId) const { return m_states.value(threadId); }

Q_SIGNALS:
    /// stateOf() has another value for this thread, or a save of it ended like the one before.
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
