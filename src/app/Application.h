#pragma once

#include "app/AppDelegate.h"
#include "app/EmergencyExit.h"
#include "app/LogShipper.h"
#include "app/QtStatusBar.h"
#include "app/SingleInstance.h"
#include "backend/AuthService.h"
#include "backend/HeartbeatService.h"
#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "base/Settings.h"
#include "history/BackgroundThreadSaver.h"
#include "history/CaptureSessionStore.h"
#include "history/StoredThreadLibrary.h"
#include "hotkeys/HotkeyManager.h"
#include "page/ResponseView.h"
#include "platform/Platform.h"
#include "platform/TerminationSignals.h"
#include "query/PermissionChecker.h"
#include "query/ProxyQueryService.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QObject>
#include <QQmlEngine>

#include <memory>

namespace quellora {

/// Puts the program together: the process-wide objects and the factories of its windows. Lives as
/// long as the event loop. Main thread.
class Application : public QObject
{
    Q_OBJECT
public:
    /// Needs the application object.
    /// @param instance holds the display session for this process
    explicit Application(std::unique_ptr<SingleInstance> instance);
    ~Application() override;

    /// Runs the event loop until the application quits; returns the exit code.
    int run();

private:
    /// Waits until threads and preferences are on disk.
    void finishWriting();
    /// The last that happens when the process is ended from within.
    void finishAtOnce();
    std::unique_ptr<LoginPresenter> makeLogin();
    std::unique_ptr<OverlayPresenter> makeOverlay(const VantiroConfig &config);
    std::unique_ptr<MenuBarController> makeMenuBar();
    /// The capture tool, with the arguments for the chosen screens.
    CaptureTool captureTool() const;
    AppDelegate::Collaborators collaborators();
    DeviceFields deviceFields() const;

    /// Last to go: the next start may begin when everything is stored.
    std::unique_ptr<SingleInstance> m_instance;
    std::unique_ptr<Platform> m_platform;
    BackendEndpoints m_endpoints;
    QNetworkAccessManager m_network;
    std::unique_ptr<UserDefaults> m_defaults;
    Settings m_settings;
    NotificationCenter m_notifications;
    PermissionChecker m_permissions;
    HotkeyManager m_hotkeys;
    AuthService m_auth;
    SessionManager m_session;
    HeartbeatService m_heartbeat;
    ProxyQueryService m_queries;
    CaptureSessionStore m_store;
    BackgroundThreadSaver m_saver;
    StoredThreadLibrary m_library;
    EmergencyExit m_emergencyExit;
    LogShipper m_logShipper;
    QtStatusBar m_statusBar;
    QQmlEngine m_engine;
    std::unique_ptr<AppDelegate> m_delegate;
    TerminationSignals m_terminationSignals{&QCoreApplication::quit};
};

} // namespace quellora
