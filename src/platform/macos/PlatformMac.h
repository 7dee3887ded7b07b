#pragma once

#include "platform/DesktopSession.h"
#include "platform/Notifications.h"
#include "platform/Platform.h"
#include "platform/macos/AppearanceMac.h"
#include "platform/macos/ApplicationShellMac.h"
#include "platform/macos/DeviceInfoMac.h"
#include "platform/macos/GlobalHotkeysMac.h"
#include "platform/macos/KeyMonitorMac.h"
#include "platform/macos/PanelWindowMac.h"
#include "platform/macos/PermissionsMac.h"
#include "platform/macos/SystemSymbolsMac.h"
#include "platform/macos/WorkspaceMac.h"

namespace quellora {

/// The menu bar; always available.
class StatusAreaMac : public StatusArea
{
public:
    bool isAvailable() const override { return true; }
    void onChanged(std::function<void()>) override {}
};

/// All platform interfaces on macOS. Destroy it before the application object.
class PlatformMac : public Platform
{
public:
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
    ScreenLayout screenLayout() const override;
    Vocabulary vocabulary() const override { return Vocabulary::macOS(); }
    ShortcutGuide shortcutGuide() const override { return {}; }
    QString applicationSupportDirectory() const override;
    std::unique_ptr<UserDefaults> makeUserDefaults() const override;

private:
    PanelWindowMac m_panelWindow;
    GlobalHotkeysMac m_globalHotkeys;
    KeyMonitorMac m_keyMonitor;
    PermissionsMac m_permissions;
    AppearanceMac m_appearance;
    WorkspaceMac m_workspace;
    StatusAreaMac m_statusArea;
    SystemSymbolsMac m_symbols;
    ApplicationShellMac m_shell;
    DeviceInfoMac m_deviceInfo;
    UnobservedSession m_desktopSession{
        QStringLiteral("Locking and sleep go unnoticed on this system")};
    NoNotifications m_notifications{
        QStringLiteral("Notifications are not supported on this system")};
};

} // namespace quellora
