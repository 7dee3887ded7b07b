#pragma once

#include "platform/Platform.h"
#include "platform/macos/LastValue.h"
#include "platform/macos/Subscription.h"

namespace quellora {

/// Privacy permissions. The system does not announce changes, so they are checked whenever this or
/// another program is activated, as when the user leaves the system settings. Main thread only.
class PermissionsMac : public Permissions
{
public:
    PermissionsMac();

    bool isAccessibilityTrusted() const override;
    bool isScreenRecordingGranted() const override;
    void requestScreenRecording() override;
    void onChanged(std::function<void()> handler) override { m_handler = std::move(handler); }

private:
    struct State
    {
        bool accessibility = false;
        bool screenRecording = false;
        bool operator==(const State &) const = default;
    };
    State currentState() const;
    void recheck();

    LastValue<State> m_state;
    std::function<void()> m_handler;
    Subscription m_activated;
    Subscription m_otherActivated;
};

} // namespace quellora
