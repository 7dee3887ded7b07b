#pragma once

#include "app/StatusBar.h"

#include <QIcon>

namespace quellora {

class StatusArea;
class SystemSymbols;

/// Status items based on QSystemTrayIcon, which uses the StatusNotifierItem protocol if available
/// and XEmbed otherwise on X11. The item is added when a tray appears later. Requires QApplication.
/// Main thread only.
class QtStatusBar : public StatusBar
{
public:
    /// @param area reports whether there is a tray; supports one item at a time; must outlive items
    /// @param symbols system images, preferred to the bundled ones; must outlive items
    QtStatusBar(StatusArea &area, const SystemSymbols &symbols) : m_area(area), m_symbols(symbols)
    {}

    std::unique_ptr<StatusItem> makeItem() override;

    /// The icon for a symbol; null if there is none. On desktops that recolour symbols of the icon
    /// theme for their bar, it has the name of the installed one.
    static QIcon symbolIcon(const SystemSymbols &symbols, const QString &symbolName);

private:
    StatusArea &m_area;
    const SystemSymbols &m_symbols;
};

} // namespace quellora
