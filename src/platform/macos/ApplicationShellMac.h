#pragma once

#include "platform/Platform.h"

namespace quellora {

/// Application-level integration on macOS. Main thread only.
class ApplicationShellMac : public ApplicationShell
{
public:
    Capability becomeAccessory() override;
    /// The program has a Dock and switcher entry while the window is visible.
    Capability makeOrdinary(QWindow &window) override;
    /// Replaces the program's main menu. An accessory program shows no menu bar, but the key
    /// equivalents work.
    Capability installEditMenu() override;
    /// BestEffort when the window did not become the key window at once.
    Capability activate(QWindow &window) override;
};

} // namespace quellora
