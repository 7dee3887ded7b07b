#pragma once

#include "platform/DesktopSession.h"

namespace quellora {

/// DesktopSession that the test locks, unlocks and wakes up.
class FakeDesktopSession : public DesktopSession
{
public:
    Capability isObserved() const override { return answer; }
    bool isLocked() const override { return m_isLocked; }

    /// Emits lockedChanged() if the state changes.
    void setLocked(bool isLocked)
    {
        if (isLocked == m_isLocked)
            return;
        m_isLocked = isLocked;
        Q_EMIT lockedChanged(isLocked);
    }
    void resume() { Q_EMIT resumed(); }

    Capability answer = Capability::applied();

private:
    bool m_isLocked = false;
};

} // namespace quellora
