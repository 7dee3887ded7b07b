#pragma once

#include "platform/Platform.h"

namespace quellora {

/// Application-level integration on Wayland: a program has no say in task bars, title bars and the
/// focus, but panels are in no task bar anyway. Main thread only.
class ApplicationShellWayland : public ApplicationShell
{
public:
    /// BestEffort: panels are in no task bar; other windows are, if the compositor has one.
    Capability becomeAccessory() override;
    /// BestEffort: the compositor or the toolkit's theme decides about the title bar.
    Capability makeOrdinary(QWindow &window) override;
    /// Nothing to install: Qt's text fields handle the standard shortcuts.
    Capability installEditMenu() override { return Capability::applied(); }
    /// BestEffort: the compositor may refuse the focus.
    Capability activate(QWindow &window) override;
};

} // namespace quellora
