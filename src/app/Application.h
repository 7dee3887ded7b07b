#pragma once

#include "app/AppDelegate.h"
#include "app/EmergencyExit.h"
#include "app/ExportDialog.h"
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
#include "picker/RegionCapture.h"
#include "platform/Platform.h"
#include "platform/TerminationSignals.h"
#include "query/CaptureTarget.h"
#include "query/PermissionChecker.h"
#include "query/ProxyQueryService.h"
#include "query/ScreenshotCapture.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QObject>
#include <QQmlEngine>

#include <memory>

namespace quellora {

/// Composition root: owns the process-wide objects and creates the windows. Main thread only.
class Application : public QObject
{
    Q_OBJECT
public:
    /// Requires the QApplication object.
    /// @param instance lock of this process on the display session
    explicit Application(std::unique_ptr<SingleInstance> instance);
    ~Application() override;

    /// Runs the event loop until the application quits; returns the exit code.
    int run();

private:
    /// Blocks until threads and preferences are on disk.
    void flushStorage();
    /// Emergency exit callback: saves all data before the process ends without running destructors.
    void emergencyShutdown();
    std::unique_ptr<LoginPresenter> makeLogin();
    std::unique_ptr<OverlayPresenter> makeOverlay(const VantiroConfig &config);
    std::unique_ptr<MenuBarController> makeMenuBar();
    /// Takes one picture; of screens as the settings say.
    QFuture<ScreenshotCapture::Outcome> capture(CaptureTarget target);
    QFuture<ScreenshotCapture::Outcome> captureScreen();
    QFuture<ScreenshotCapture::Outcome> captureFrontWindow();
    /// Takes the picture of all screens of which the user chooses a part.
    QFuture<ScreenshotCapture::Frozen> freezeScreens();
    /// The platform's capture tool with arguments for the screens selected in the settings.
    CaptureTool captureTool() const;
    AppDelegate::Collaborators collaborators();
    DeviceFields deviceFields() const;

    /// Destroyed last, so that the next instance starts only after all data is on disk.
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
    RegionCapture m_regions;
    QQmlEngine m_engine;
    ExportDialog m_exportDialog;
    std::unique_ptr<AppDelegate> m_delegate;
    TerminationSignals m_terminationSignals{&QCoreApplication::quit};
};

} // namespace quellora
