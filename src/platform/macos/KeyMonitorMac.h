#pragma once

#include "platform/Platform.h"
#include "platform/macos/Subscription.h"

namespace quellora {

/// Intercepts the program's key presses with a local event monitor. Main thread only.
class KeyMonitorMac : public KeyMonitor
{
public:
    void install(std::function<void(const KeyDown &)> onKeyDown) override;
    void remove() override { m_monitor.reset(); }

private:
    Subscription m_monitor;
};

} // namespace quellora
