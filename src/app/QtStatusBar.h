#pragma once

#include "app/StatusBar.h"

namespace quellora {

class StatusArea;

/// Status items through the toolkit's system tray: the desktop's own protocol where there is one,
/// the older embedding protocol otherwise. A tray that appears later gets the item then. Needs the
/// widget application object.
class QtStatusBar : public StatusBar
{
public:
    /// @param area borrowed; tells whether there is a tray; one item at a time
    explicit QtStatusBar(StatusArea &area) : m_area(area) {}

    std::unique_ptr<StatusItem> makeItem() override;

private:
    StatusArea &m_area;
};

} // namespace quellora
