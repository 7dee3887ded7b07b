#include "platform/linux/PlatformX11.h"

#include "platform/linux/LinuxPaths.h"

namespace quellora {

PlatformX11::PlatformX11(const X11Connection &x11)
    : m_panelWindow(x11)
    , m_globalHotkeys(x11)
    , m_permissions(PermissionsLinux::currentSession())
    , m_statusArea(x11)
    , m_shell(x11)
{}

CaptureTool PlatformX11::captureTool() const
{
    return LinuxPaths::captureTool();
}

QString PlatformX11::applicationSupportDirectory() const
{
    return LinuxPaths::applicationSupportDirectory();
}

} // namespace quellora
