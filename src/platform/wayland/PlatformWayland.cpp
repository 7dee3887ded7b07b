#include "platform/wayland/PlatformWayland.h"

#include "base/UserDefaults.h"
#include "platform/linux/LinuxPaths.h"

#include <utility>

namespace quellora {

PlatformWayland::PlatformWayland(std::unique_ptr<WaylandConnection> connection)
    : m_connection(std::move(connection))
    , m_keyboard(*m_connection)
    , m_panelWindow(*m_connection, m_keyboard)
    , m_keyMonitor([this](quint32 scanCode) { return m_keyboard.keyName(scanCode); })
    , m_permissions(PermissionsLinux::Session::Wayland, &m_desktopShortcuts)
    , m_statusArea(std::nullopt)
{}

CaptureTool PlatformWayland::captureTool() const
{
    return LinuxPaths::captureTool();
}

QString PlatformWayland::applicationSupportDirectory() const
{
    return LinuxPaths::applicationSupportDirectory();
}

std::unique_ptr<UserDefaults> PlatformWayland::makeUserDefaults() const
{
    return std::make_unique<JsonUserDefaults>(JsonUserDefaults::defaultPath());
}

} // namespace quellora
