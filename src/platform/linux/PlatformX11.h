#pragma once

#include "platform/EventFilterKeyMonitor.h"
#include "platform/NoSystemSymbols.h"
#include "platform/Platform.h"
#include "platform/linux/AppearanceLinux.h"
#include "platform/linux/ApplicationShellX11.h"
#include "platform/linux/DesktopSessionLinux.h"
#include "platform/linux/DesktopShortcutsPortal.h"
#include "platform/linux/DeviceInfoLinux.h"
#include "platform/linux/GlobalHotkeysX11.h"
#include "platform/linux/NotificationsLinux.h"
#include "platform/linux/PanelVeilX11.h"
#include "platform/linux/PanelWindowX11.h"
#include "platform/linux/PermissionsLinux.h"
#include "platform/linux/PortalScreenSource.h"
#include "platform/linux/ShortcutGuideLinux.h"
#include "platform/linux/StatusAreaLinux.h"
#include "platform/linux/WorkspaceLinux.h"

namespace quellora {

/// All platform interfaces on X11. Destroy it before the application object.
class PlatformX11 : public Platform
{
public:
    /// @param session whether the X server is the session's own or part of a Wayland session
    PlatformX11(const X11Connection &x11, PermissionsLinux::Session session);

    PanelWindow &panelWindow() override { return m_panelWindow; }
    GlobalHotkeys &globalHotkeys() override { return m_globalHotkeys; }
    KeyMonitor &keyMonitor() override { return m_keyMonitor; }
    Permissions &permissions() override { return m_permissions; }
    Appearance &appearance() override { return m_appearance; }
    Workspace &workspace() override { return m_workspace; }
    StatusArea &statusArea() override { return m_statusArea; }
    SystemSymbols &symbols() override { return m_symbols; }
    ApplicationShell &shell() override { return m_shell; }
    DeviceInfo &deviceInfo() override { return m_deviceInfo; }
    DesktopSession &desktopSession() override { return m_desktopSession; }
    Notifications &notifications() override { return m_notifications; }
    CaptureTool captureTool() const override;
    /// Of a Wayland session: the X server shows the windows of its own clients only.
    ScreenSource *screenSource() override { return m_screenSource.get(); }
    ScreenLayout screenLayout() const override { return ScreenLayout::inPixels(); }
    /// Of a Wayland session: the X server sees keys over the windows of its own clients only.
    DesktopShortcuts *desktopShortcuts() override { return m_desktopShortcuts.get(); }
    Vocabulary vocabulary() const override { return Vocabulary::linuxDesktop(); }
    ShortcutGuide shortcutGuide() const override { return ShortcutGuideLinux::current(); }
    QString applicationSupportDirectory() const override;
    std::unique_ptr<UserDefaults> makeUserDefaults() const override;

private:
    PanelWindowX11 m_panelWindow;
    GlobalHotkeysX11 m_globalHotkeys;
    EventFilterKeyMonitor m_keyMonitor;
    /// Null in X11 sessions.
    std::unique_ptr<DesktopShortcutsPortal> m_desktopShortcuts;
    PermissionsLinux m_permissions;
    std::unique_ptr<PanelVeilX11> m_veil;
    std::unique_ptr<PortalScreenSource> m_screenSource;
    AppearanceLinux m_appearance;
    WorkspaceLinux m_workspace;
    StatusAreaLinux m_statusArea;
    NoSystemSymbols m_symbols;
    ApplicationShellX11 m_shell;
    DeviceInfoLinux m_deviceInfo;
    DesktopSessionLinux m_desktopSession;
    NotificationsLinux m_notifications;
};

} // namespace quellora
