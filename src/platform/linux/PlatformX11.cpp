#include "platform/linux/PlatformX11.h"

#include "base/UserDefaults.h"
#include "platform/linux/LinuxPaths.h"

namespace quellora {

PlatformX11::PlatformX11(const X11Connection &x11, PermissionsLinux::Session session)
    : m_panelWindow(x11)
    , m_globalHotkeys(x11)
    , m_keyMonitor([this](quint32 scanCode) { return m_globalHotkeys.keyName(scanCode); })
    , m_desktopShortcuts(session == PermissionsLinux::Session::Wayland
                             ? std::make_unique<DesktopShortcutsPortal>()
                             : nullptr)
    , m_permissions(session, m_desktopShortcuts.get())
    , m_statusArea(x11)
    , m_shell(x11)
{
    if (session == PermissionsLinux::Session::X11)
        return;
    m_veil = std::make_unique<PanelVeilX11>(x11);
    m_screenSource =
        std::make_unique<PortalScreenSource>(*m_veil, [this] { return m_veil->screenLayout(); });
    m_permissions.setScreenSource(m_screenSource.get());
}

CaptureTool PlatformX11::captureTool() const
{
    return LinuxPaths::captureTool();
}

QString PlatformX11::applicationSupportDirectory() const
{
    return LinuxPaths::applicationSupportDirectory();
}

std::unique_ptr<UserDefaults> PlatformX11::makeUserDefaults() const
{
    return std::make_unique<JsonUserDefaults>(JsonUserDefaults::defaultPath());
}

} // namespace quellora
