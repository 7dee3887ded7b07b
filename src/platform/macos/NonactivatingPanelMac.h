#pragma once

namespace quellora {

/// While one lives, panels are made as panels that take events without bringing their program to
/// the front. The window server hears of that when a panel is made and never again, whatever its
/// style says later, and the toolkit has no way to ask for it. At most one at a time; main thread
/// only.
class NonactivatingPanelMac
{
public:
    NonactivatingPanelMac();
    ~NonactivatingPanelMac();
    NonactivatingPanelMac(const NonactivatingPanelMac &) = delete;
    NonactivatingPanelMac &operator=(const NonactivatingPanelMac &) = delete;
};

} // namespace quellora
