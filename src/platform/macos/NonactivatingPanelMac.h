#pragma once

namespace quellora {

/// While an instance exists, new NSPanels are created with the non-activating style. The window
/// server evaluates that style only at creation, and Qt offers no way to request it. At most one
/// instance at a time; main thread only.
class NonactivatingPanelMac
{
public:
    NonactivatingPanelMac();
    ~NonactivatingPanelMac();
    NonactivatingPanelMac(const NonactivatingPanelMac &) = delete;
    NonactivatingPanelMac &operator=(const NonactivatingPanelMac &) = delete;
};

} // namespace quellora
