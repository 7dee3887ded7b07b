#include "app/AppDelegate.h"

#include "app/MenuBarController.h"
#include "app/RemoteCommand.h"
#include "backend/HeartbeatService.h"
#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "base/Log.h"
#include "base/UserDefaults.h"
#include "hotkeys/HotkeyManager.h"
#include "platform/DesktopSession.h"
#include "platform/Platform.h"
#include "query/PermissionChecker.h"

#include <QPointer>

#include <utility>

namespace quellora {

namespace {

constexpr double opacityStep = 0.1;
const QString actionCommandsUsed = QString::fromLatin1(DefaultsKey::actionCommandsUsed);

void log(const QString &message)
{
    Log::event(QStringLiteral("[AppDelegate] ") + message);
}

} // namespace

AppDelegate::AppDelegate(Collaborators collaborators, QObject *parent)
    : QObject(parent)
    , m_collaborators(std::move(collaborators))
    , m_prompts(m_collaborators.defaults)
{}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    log(QStringLiteral("applicationDidFinishLaunching"));
    m_config = m_collaborators.loadConfig();
    const Capability accessory = m_collaborators.shell.becomeAccessory();
    log(QStringLiteral("Activation policy set to .accessory (no Dock/App Switcher)"));
    if (accessory.state() == Capability::State::Unsupported)
        log(QStringLiteral("WARNING: ") + accessory.reason());
    setupEditMenu();
    connect(&m_collaborators.hotkeys, &HotkeyManager::pressed, this, &AppDelegate::handleHotkey);
    connect(&m_collaborators.hotkeys, &HotkeyManager::promptPressed, this,
            &AppDelegate::handlePrompt);
    connect(&m_prompts, &PromptPresets::changed, this,
            [this] { m_collaborators.hotkeys.setPrompts(m_prompts.list()); });
    m_collaborators.hotkeys.setPrompts(m_prompts.list());
    connect(&m_collaborators.hotkeys, &HotkeyManager::deliveryChanged, this,
            &AppDelegate::reportKeys);
    m_collaborators.permissions.checkAccessibility();
    m_collaborators.permissions.checkScreenRecording();
    m_collaborators.hotkeys.start(
        HotkeyBindings::loadEffective(HotkeyCombos(m_config->hotkeys), m_collaborators.defaults));
    connect(&m_collaborators.notifications, &NotificationCenter::sessionExpired, this,
            &AppDelegate::handleSessionExpired);
    watchDesktop();
    showLogin();
    log(QStringLiteral("Login window shown, overlay deferred until sign-in"));
}

void AppDelegate::setupEditMenu()
{
    const Capability installed = m_collaborators.shell.installEditMenu();
    log(QStringLiteral("Edit menu installed to prime standard key-equivalent shortcuts"));
    if (installed.state() == Capability::State::Unsupported)
        log(QStringLiteral("WARNING: ") + installed.reason());
}

void AppDelegate::watchDesktop()
{
    const Capability observed = m_collaborators.desktop.isObserved();
    if (observed.state() == Capability::State::Unsupported)
        log(QStringLiteral("WARNING: ") + observed.reason());
    connect(&m_collaborators.desktop, &DesktopSession::resumed, &m_collaborators.heartbeat,
            &HeartbeatService::resume);
}

void AppDelegate::handleHotkey(HotkeyAction action)
{
    // Hot keys have no effect before sign-in.
    if (!m_overlay)
        return;
    switch (action) {
    case HotkeyAction::Capture:
        return m_overlay->triggerCaptureAndSend(CaptureTarget::Screen);
    case HotkeyAction::Clear:
        return m_overlay->clearContent();
    case HotkeyAction::Toggle:
        return m_overlay->toggleVisibility();
    case HotkeyAction::OpacityUp:
        return m_overlay->adjustOpacity(opacityStep);
    case HotkeyAction::OpacityDown:
        return m_overlay->adjustOpacity(-opacityStep);
    case HotkeyAction::CaptureNoSend:
        return m_overlay->captureNoSend();
    case HotkeyAction::NewThread:
        return m_overlay->startNewThread();
    case HotkeyAction::CaptureWindow:
        return m_overlay->triggerCaptureAndSend(CaptureTarget::FrontWindow);
    case HotkeyAction::CaptureRegion:
        return m_overlay->triggerCaptureAndSend(CaptureTarget::Region);
    case HotkeyAction::CaptureLastRegion:
        return m_overlay->triggerCaptureAndSend(CaptureTarget::LastRegion);
    case HotkeyAction::ToggleClicks:
        return m_overlay->toggleClicks();
    case HotkeyAction::Retry:
        return m_overlay->retry();
    }
}

void AppDelegate::handlePrompt(const QString &promptId)
{
    const auto prompt = m_prompts.find(promptId);
    if (m_overlay && prompt)
        m_overlay->captureAndSendPrompt(prompt->text);
}

void AppDelegate::reportKeys()
{
    const HotkeyManager &hotkeys = m_collaborators.hotkeys;
    QString line;
    // Who has used a command of the program knows.
    if (!hotkeys.isDesktopUndecided() &&
        !m_collaborators.defaults.boolValue(actionCommandsUsed).value_or(false)) {
        switch (hotkeys.delivery()) {
        case HotkeyManager::Delivery::Own:
        case HotkeyManager::Delivery::Desktop:
            break;
        case HotkeyManager::Delivery::OwnPartly:
            line = QStringLiteral(
                "**Hotkeys work only over some windows in this session.** Settings, under Desktop "
                "shortcuts, shows how to bind the keys in your desktop instead.");
            break;
        case HotkeyManager::Delivery::None:
            line = QStringLiteral(
                "**In this session only your desktop can bind keys.** Settings, under Desktop "
                "shortcuts, shows how to bind them to Quellora's commands.");
            break;
        }
    }
    m_collaborators.permissions.setProblem(QStringLiteral("keys"), line);
}

void AppDelegate::showLogin()
{
    m_login = m_collaborators.makeLogin();
    if (!m_login)
        qFatal("The login window could not be created");
    m_login->onLoginSuccess = [self = QPointer(this)] {
        if (self)
            self->startOverlay();
    };
    m_login->showWindow();
}

void AppDelegate::deleteLoginLater()
{
    // Deferred because the login window's success callback is still on the stack.
    QMetaObject::invokeMethod(
        this, [login = std::shared_ptr<LoginPresenter>(std::move(m_login))] {},
        Qt::QueuedConnection);
}

QString AppDelegate::handleCommand(const RemoteCommand &command, const QString &operand)
{
    switch (command.kind) {
    case RemoteCommand::Kind::Show:
        bringToFront();
        return {};
    case RemoteCommand::Kind::Quit:
        log(QStringLiteral("Command: quit"));
        m_collaborators.quit();
        return {};
    case RemoteCommand::Kind::Prompt:
    case RemoteCommand::Kind::Action:
        break;
    }
    if (!m_overlay)
        return QStringLiteral("sign in first");
    std::optional<PromptPreset> prompt;
    if (command.kind == RemoteCommand::Kind::Prompt) {
        prompt = m_prompts.named(operand);
        if (!prompt)
            return QStringLiteral("no prompt has this name");
    }
    log(QStringLiteral("Command: ") + QLatin1StringView(command.name));
    if (!m_collaborators.defaults.boolValue(actionCommandsUsed).value_or(false)) {
        m_collaborators.defaults.setBool(actionCommandsUsed, true);
        reportKeys();
    }
    if (prompt)
        m_overlay->captureAndSendPrompt(prompt->text);
    else
        handleHotkey(command.action);
    return {};
}

void AppDelegate::bringToFront()
{
    log(QStringLiteral("Started once more — bringing the window to the front"));
    if (m_overlay)
        m_overlay->show();
    else if (m_login)
        m_login->bringToFront();
}

void AppDelegate::startOverlay()
{
    if (!m_config)
        qFatal("The overlay was started without a configuration");
    m_overlay = m_collaborators.makeOverlay(*m_config);
    if (!m_overlay)
        qFatal("The overlay could not be created");
    log(QStringLiteral("OverlayWindowController created"));
    m_overlay->show();
    log(QStringLiteral("Overlay window shown"));
    // Not earlier: the desktop may ask the user, who should know by then what is asking.
    m_collaborators.hotkeys.offerToDesktop();
    applyConfigAtStart();

    m_menuBar = m_collaborators.makeMenuBar();
    m_menuBar->onShowOverlay = [self = QPointer(this)] {
        if (self && self->m_overlay)
            self->m_overlay->show();
    };
    m_menuBar->onOpenFailed = [self = QPointer(this)](const QString &text) {
        if (self && self->m_overlay)
            self->m_overlay->showNotice(text);
    };
    log(QStringLiteral("MenuBarController created"));
    deleteLoginLater();
    log(QStringLiteral("Vantiro Overlay running (single-process, no pipeline.py dependency)."));
}

void AppDelegate::applyConfigAtStart()
{
    const std::optional<AppConfigResponse> config = m_collaborators.session.currentConfig();
    if (!config)
        return;
    m_overlay->applyConfigAtStart(*config);
    const auto token = m_collaborators.session.sessionToken();
    if (config->requestLogs.value_or(false) && token && m_collaborators.shipLogs)
        m_collaborators.shipLogs(*token);
    m_collaborators.heartbeat.start(static_cast<double>(config->heartbeatIntervalSeconds));
}

void AppDelegate::handleSessionExpired()
{
    log(QStringLiteral("sessionExpired received — tearing down overlay, showing login window"));
    m_collaborators.session.logout();
    // Keep a login window that is already shown: the user may be typing an e-mail address.
    if (!m_overlay && m_login)
        return;
    if (m_overlay)
        m_overlay->closeWindow();
    // Deferred because either may be on the stack: sign-out is called from the status menu, expiry
    // from a slot of the panel.
    std::shared_ptr<OverlayPresenter> overlay = std::move(m_overlay);
    std::shared_ptr<MenuBarController> menuBar = std::move(m_menuBar);
    QMetaObject::invokeMethod(
        this, [overlay, menuBar] {}, Qt::QueuedConnection);
    showLogin();
}

void AppDelegate::applicationWillTerminate()
{
    log(QStringLiteral("applicationWillTerminate — clearing session"));
    m_collaborators.session.logout();
    m_collaborators.hotkeys.stop();
}

} // namespace quellora
