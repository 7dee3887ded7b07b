#include "app/Application.h"

#include "app/MenuBarController.h"
#include "backend/OAuthCallbackListener.h"
#include "base/AppConfig.h"
#include "base/Log.h"
#include "hotkeys/HotkeyActions.h"
#include "login/LoginWindowController.h"
#include "overlay/OverlayWindowController.h"
#include "page/PreviewFiles.h"
#include "platform/DesktopSession.h"
#include "query/ScreenshotCapture.h"
#include "ui/Ui.h"

#include <QCoreApplication>
#include <QDir>
#include <QNetworkCookieJar>
#include <QThreadPool>

#include <chrono>
#include <utility>

namespace quellora {

Application::Application(std::unique_ptr<SingleInstance> instance)
    : m_instance(std::move(instance))
    , m_platform(Platform::create())
    , m_endpoints(AppConfig::endpoints())
    , m_defaults(m_platform->makeUserDefaults())
    , m_settings(*m_defaults)
    , m_permissions(m_platform->permissions(), m_platform->vocabulary(), m_platform->screenSource())
    , m_hotkeys(
          m_platform->globalHotkeys(), m_platform->vocabulary(), &std::chrono::steady_clock::now,
          [this](const HotkeyId &id, const QString &line) {
              m_permissions.setProblem(id.jsonKey(), line);
          },
          m_platform->desktopShortcuts())
    , m_auth(m_network, m_endpoints, [this] { return deviceFields(); })
    , m_session(m_auth, m_notifications)
    , m_heartbeat(m_session, m_notifications,
                  [this] {
                      return std::make_unique<AuthService>(m_network, m_endpoints,
                                                           [this] { return deviceFields(); });
                  })
    , m_queries(m_network, m_endpoints)
    , m_store(m_platform->applicationSupportDirectory())
    , m_saver(m_store)
    , m_library(m_store, m_saver)
    , m_emergencyExit([this] { emergencyShutdown(); })
    , m_logShipper(m_network, m_endpoints.logsUpload())
    , m_statusBar(m_platform->statusArea(), m_platform->symbols())
    , m_regions({[this] { return freezeScreens(); }, [this] { return m_platform->screenLayout(); },
                 m_platform->panelWindow(), m_settings,
                 [this] { return m_platform->appearance().textScale(); }})
    , m_exportDialog(m_platform->shell())
    , m_delegate(std::make_unique<AppDelegate>(collaborators()))
{
    m_session.setHeartbeatStopper([this] { m_heartbeat.stop(); });
    m_logShipper.follow(m_notifications, [this] { return m_session.sessionToken(); });
    // No cookies may carry over from one account to the next.
    connect(&m_notifications, &NotificationCenter::sessionDidEnd, this,
            [this] { m_network.setCookieJar(new QNetworkCookieJar); });
    QThreadPool::globalInstance()->start(
        [folder = QDir::tempPath()] { PreviewFiles::removeAbandoned(folder); });
    initializeUi();
    prepareQmlEngine(m_engine);
    followMotion(m_engine, m_platform->appearance());
    followTextScale(m_engine, m_platform->appearance());
    Platform::setDisplayLossHandler(&EmergencyExit::exitNow);
}

Application::~Application()
{
    // Destroy the windows before the QML engine that created them.
    m_delegate.reset();
    flushStorage();
}

void Application::emergencyShutdown()
{
    // Flush first: unlike the overlay's shutdown, this is safe in any state.
    flushStorage();
    if (OverlayPresenter *overlay = m_delegate ? m_delegate->overlay() : nullptr) {
        overlay->finishAtOnce();
        flushStorage();
    }
}

void Application::flushStorage()
{
    // Retry failed saves: disk space may have been freed since.
    m_saver.flush();
    m_saver.retryFailed();
    m_saver.flush();
    m_defaults->flush();
}

int Application::run()
{
    connect(qApp, &QCoreApplication::aboutToQuit, this,
            [this] { m_delegate->applicationWillTerminate(); });
    m_instance->listen([this](const RemoteCommand &command, const QString &operand) {
        return m_delegate->handleCommand(command, operand);
    });
    if (ScreenSource *source = m_platform->screenSource())
        m_instance->servePictures([this, source](ScreenSource::Area area) {
            if (!m_platform->desktopSession().isLocked())
                return source->take(area);
            return QtFuture::makeReadyFuture<ScreenSource::Picture>(
                tl::unexpected(ScreenSource::Failure{ScreenSource::Failure::Kind::Refused,
                                                     QStringLiteral("the session is locked")}));
        });
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_delegate->applicationDidFinishLaunching();
            m_emergencyExit.registerExitHandlers();
        },
        Qt::QueuedConnection);
    Log::event(QStringLiteral("[main] Delegate assigned, entering run loop"));
    return QCoreApplication::exec();
}

AppDelegate::Collaborators Application::collaborators()
{
    return {
        m_platform->shell(),
        m_platform->desktopSession(),
        *m_defaults,
        m_notifications,
        m_session,
        m_heartbeat,
        m_hotkeys,
        m_permissions,
        [] { return VantiroConfig::load(hotkeyConfigKeys()); },
        [this] { return makeLogin(); },
        [this](const VantiroConfig &config) { return makeOverlay(config); },
        [this] { return makeMenuBar(); },
        [this](const QString &token) { m_logShipper.shipLogs(token); },
        [] { QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection); },
    };
}

DeviceFields Application::deviceFields() const
{
    DeviceInfo &info = m_platform->deviceInfo();
    return {info.osVersion(), m_hotkeys.activeHotkeys(), info.cpuArch()};
}

std::unique_ptr<LoginPresenter> Application::makeLogin()
{
    return std::make_unique<LoginWindowController>(LoginWindowController::Collaborators{
        m_engine, m_auth, m_platform->workspace(), m_platform->shell(), m_endpoints,
        std::make_unique<OAuthCallbackListener>(AppConfig::oauthCallbackPort),
        &QCoreApplication::quit, m_platform->screenSource()});
}

std::unique_ptr<OverlayPresenter> Application::makeOverlay(const VantiroConfig &config)
{
    auto view = std::make_unique<ResponseView>();
    // The engine and code that has run for the first time have registered destructors since, which
    // must not run before the handlers.
    const auto registerAgain = [this] { m_emergencyExit.registerExitHandlers(); };
    connect(view.get(), &ResponseView::engineStarted, this, registerAgain);
    connect(view.get(), &PageSurface::loadFinished, this, registerAgain);
    return std::make_unique<OverlayWindowController>(
        config,
        OverlayWindowController::Collaborators{
            *m_platform, m_settings, *m_defaults, m_notifications, m_session, m_queries, m_engine,
            std::move(view), QUrl(QStringLiteral("qrc:/qt/qml/Quellora/Page/ResponseView.qml")),
            &m_saver, m_endpoints, [this](CaptureTarget target) { return capture(target); },
            &QCoreApplication::quit, m_hotkeys, &m_library, &m_permissions, &m_exportDialog,
            [this] { m_heartbeat.poll(); }});
}

QFuture<ScreenshotCapture::Outcome> Application::capture(CaptureTarget target)
{
    switch (target) {
    case CaptureTarget::Screen:
        return captureScreen();
    case CaptureTarget::FrontWindow:
        return captureFrontWindow();
    case CaptureTarget::Region:
        return m_regions.capture(false);
    case CaptureTarget::LastRegion:
        return m_regions.capture(true);
    }
    Q_UNREACHABLE();
}

QFuture<ScreenshotCapture::Outcome> Application::captureFrontWindow()
{
    if (ScreenSource *source = m_platform->screenSource())
        return ScreenshotCapture::captureInBackground(*source, ScreenSource::Area::FrontWindow);
    CaptureTool tool = m_platform->captureTool();
    if (tool.windowArguments.isEmpty())
        return QtFuture::makeReadyFuture<ScreenshotCapture::Outcome>(
            tl::unexpected(ScreenshotCapture::CaptureError{
                ScreenshotCapture::CaptureError::Kind::Unavailable,
                QStringLiteral("The window in front cannot be captured on this system. Capture a "
                               "region instead"),
                0}));
    tool.arguments = tool.windowArguments;
    return ScreenshotCapture::captureInBackground(tool);
}

QFuture<ScreenshotCapture::Frozen> Application::freezeScreens()
{
    if (ScreenSource *source = m_platform->screenSource())
        return ScreenshotCapture::freezeInBackground(*source);
    return ScreenshotCapture::freezeInBackground(m_platform->captureTool());
}

QFuture<ScreenshotCapture::Outcome> Application::captureScreen()
{
    if (ScreenSource *source = m_platform->screenSource())
        return ScreenshotCapture::captureInBackground(*source, m_settings.captureAllScreens()
                                                                   ? ScreenSource::Area::AllScreens
                                                                   : ScreenSource::Area::OneScreen);
    return ScreenshotCapture::captureInBackground(captureTool());
}

CaptureTool Application::captureTool() const
{
    CaptureTool tool = m_platform->captureTool();
    if (!tool.allScreensArguments.isEmpty() && m_settings.captureAllScreens())
        tool.arguments = tool.allScreensArguments;
    return tool;
}

std::unique_ptr<MenuBarController> Application::makeMenuBar()
{
    return std::make_unique<MenuBarController>(m_statusBar, m_session, m_notifications,
                                               m_platform->workspace(), m_endpoints.account(),
                                               &QCoreApplication::quit);
}

} // namespace quellora
