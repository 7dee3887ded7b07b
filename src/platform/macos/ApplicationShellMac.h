#pragma once

#include "platform/Platform.h"

namespace quellora {

/// Application-level integration on macOS. Main thread only.
class ApplicationShellMac : public ApplicationShell
{
public:
    Capability becomeAccessory() override;
    /// The program is in the Dock and in the switcher as long as the window is on the screen.
    Capability makeOrdinary(QWindow &window) override;
    /// Replaces the program's main menu. It is never seen, as an accessory has no menu bar, but
    /// its key equivalents work.
    Capability installEditMenu() override;
    /// BestEffort when the window did not become the key window at once.
    Capability activate(QWindow &window) override;
};

} // namespace quellora
