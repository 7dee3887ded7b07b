#pragma once

#include "app/StatusBar.h"

namespace quellora {

class StatusArea;
class SystemSymbols;

/// Status items through the toolkit's system tray: the desktop's own protocol where there is one,
/// the older embedding protocol otherwise. A tray that appears later gets the item then. Needs the
/// widget application object.
class QtStatusBar : public StatusBar
{
public:
    /// @param area borrowed; tells whether there is a tray; one item at a time
    /// @param symbols borrowed; images of the system, preferred to the bundled drawings
    QtStatusBar(StatusArea &area, const SystemSymbols &symbols) : m_area(area), m_symbols(symbols)
    {}

    std::unique_ptr<StatusItem> makeItem() override;

private:
    StatusArea &m_area;
    const SystemSymbols &m_symbols;
};

} // namespace quellora
