#pragma once

#include "platform/Platform.h"

namespace quellora {

/// Platform without a window system. Windows can be shown and hidden; everything that needs a
/// desktop returns Unsupported, no permission is granted and no hot key can be registered.
class NullPlatform : public Platform
{
public:
    /// @param deviceInfo information about the machine, which needs no window system
    /// @param vocabulary of the operating system
    NullPlatform(std::unique_ptr<DeviceInfo> deviceInfo, CaptureTool captureTool,
                 QString applicationSupportDirectory, Vocabulary vocabulary);
    ~NullPlatform() override;

    PanelWindow &panelWindow() override { return *m_panelWindow; }
    GlobalHotkeys &globalHotkeys() override { return *m_globalHotkeys; }
    KeyMonitor &keyMonitor() override { return *m_keyMonitor; }
    Permissions &permissions() override { return *m_permissions; }
    Appearance &appearance() override { return *m_appearance; }
    Workspace &workspace() override { return *m_workspace; }
    StatusArea &statusArea() override { return *m_statusArea; }
    SystemSymbols &symbols() override { return *m_symbols; }
    ApplicationShell &shell() override { return *m_shell; }
    DeviceInfo &deviceInfo() override { return *m_deviceInfo; }
    DesktopSession &desktopSession() override { return *m_desktopSession; }
    Notifications &notifications() override { return *m_notifications; }
    CaptureTool captureTool() const override { return m_captureTool; }
    Vocabulary vocabulary() const override { return m_vocabulary; }
    ShortcutGuide shortcutGuide() const override { return {}; }
    QString applicationSupportDirectory() const override { return m_supportDirectory; }
    std::unique_ptr<UserDefaults> makeUserDefaults() const override;

private:
    std::unique_ptr<PanelWindow> m_panelWindow;
    std::unique_ptr<GlobalHotkeys> m_globalHotkeys;
    std::unique_ptr<KeyMonitor> m_keyMonitor;
    std::unique_ptr<Permissions> m_permissions;
    std::unique_ptr<Appearance> m_appearance;
    std::unique_ptr<Workspace> m_workspace;
    std::unique_ptr<StatusArea> m_statusArea;
    std::unique_ptr<SystemSymbols> m_symbols;
    std::unique_ptr<ApplicationShell> m_shell;
    std::unique_ptr<DeviceInfo> m_deviceInfo;
    std::unique_ptr<DesktopSession> m_desktopSession;
    std::unique_ptr<Notifications> m_notifications;
    CaptureTool m_captureTool;
    QString m_supportDirectory;
    Vocabulary m_vocabulary;
};

} // namespace quellora
