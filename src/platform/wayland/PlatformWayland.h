#pragma once

#include "platform/EventFilterKeyMonitor.h"
#include "platform/NoGlobalHotkeys.h"
#include "platform/NoSystemSymbols.h"
#include "platform/Platform.h"
#include "platform/ScreenSource.h"
#include "platform/linux/AppearanceLinux.h"
#include "platform/linux/DesktopSessionLinux.h"
#include "platform/linux/DesktopShortcutsPortal.h"
#include "platform/linux/DeviceInfoLinux.h"
#include "platform/linux/NotificationsLinux.h"
#include "platform/linux/PermissionsLinux.h"
#include "platform/linux/ShortcutGuideLinux.h"
#include "platform/linux/StatusAreaLinux.h"
#include "platform/linux/WorkspaceLinux.h"
#include "platform/wayland/ApplicationShellWayland.h"
#include "platform/wayland/ClipboardDataWayland.h"
#include "platform/wayland/PanelVeilWayland.h"
#include "platform/wayland/PanelWindowWayland.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandKeyboard.h"

namespace quellora {

/// All platform interfaces on a Wayland compositor with a layer shell. Destroy it before the
/// application object and after the windows.
class PlatformWayland : public Platform
{
public:
    /// @param connection has a layer shell
    explicit PlatformWayland(std::unique_ptr<WaylandConnection> connection);

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
    DesktopShortcuts *desktopShortcuts() override { return &m_desktopShortcuts; }
    ScreenSource *screenSource() override { return m_screenSource.get(); }
    Vocabulary vocabulary() const override { return Vocabulary::linuxDesktop(); }
    ShortcutGuide shortcutGuide() const override { return ShortcutGuideLinux::current(); }
    QString applicationSupportDirectory() const override;
    std::unique_ptr<UserDefaults> makeUserDefaults() const override;

private:
    std::unique_ptr<ScreenSource> makeScreenSource();

    std::unique_ptr<WaylandConnection> m_connection;
    WaylandKeyboard m_keyboard;
    PanelWindowWayland m_panelWindow;
    PanelVeilWayland m_veil;
    std::unique_ptr<ScreenSource> m_screenSource;
    NoGlobalHotkeys m_globalHotkeys;
    EventFilterKeyMonitor m_keyMonitor;
    DesktopShortcutsPortal m_desktopShortcuts;
    PermissionsLinux m_permissions;
    AppearanceLinux m_appearance;
    WorkspaceLinux m_workspace;
    StatusAreaLinux m_statusArea;
    NoSystemSymbols m_symbols;
    ApplicationShellWayland m_shell;
    DeviceInfoLinux m_deviceInfo;
    DesktopSessionLinux m_desktopSession;
    NotificationsLinux m_notifications;
    ClipboardDataWayland m_clipboardData;
};

} // namespace quellora
