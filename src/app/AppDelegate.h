#pragma once

#include "base/PromptPresets.h"
#include "base/VantiroConfig.h"
#include "login/LoginPresenter.h"
#include "overlay/OverlayPresenter.h"

#include <QObject>

#include <functional>
#include <memory>
#include <optional>

namespace quellora {

class ApplicationShell;
class DesktopSession;
class HeartbeatService;
class HotkeyManager;
class MenuBarController;
class NotificationCenter;
class PermissionChecker;
class SessionManager;
class UserDefaults;
enum class HotkeyAction;
struct RemoteCommand;

/// The application's life cycle: launch, login window, overlay between sign-in and sign-out, and
/// termination. Main thread only.
class AppDelegate : public QObject
{
    Q_OBJECT
public:
    /// All references must outlive the delegate.
    struct Collaborators
    {
        ApplicationShell &shell;
        DesktopSession &desktop;
        UserDefaults &defaults;
        NotificationCenter &notifications;
        SessionManager &session;
        HeartbeatService &heartbeat;
        HotkeyManager &hotkeys;
        PermissionChecker &permissions;
        std::function<VantiroConfig()> loadConfig;
        std::function<std::unique_ptr<LoginPresenter>()> makeLogin;
        std::function<std::unique_ptr<OverlayPresenter>(const VantiroConfig &)> makeOverlay;
        std::function<std::unique_ptr<MenuBarController>()> makeMenuBar;
        /// Starts an asynchronous upload of the log file; may be empty.
        std::function<void(const QString &sessionToken)> shipLogs;
        /// Quits the program once control returns to the event loop.
        std::function<void()> quit;
    };

    explicit AppDelegate(Collaborators collaborators, QObject *parent = nullptr);
    ~AppDelegate() override;

    /// Runs the launch sequence, which ends by showing the login window.
    void applicationDidFinishLaunching();
    /// Clears the session and unregisters every hot key.
    void applicationWillTerminate();
    /// Runs a command from another process. Returns why it is refused, or an empty text.
    QString handleCommand(const RemoteCommand &command, const QString &operand = {});

    const std::optional<VantiroConfig> &config() const { return m_config; }
    LoginPresenter *loginWindow() const { return m_login.get(); }
    OverlayPresenter *overlay() const { return m_overlay.get(); }
    MenuBarController *menuBar() const { return m_menuBar.get(); }

private:
    void setupEditMenu();
    /// Refreshes the configuration when the machine wakes up.
    void watchDesktop();
    void handleHotkey(HotkeyAction action);
    /// Captures and sends with one of the user's prompts.
    void handlePrompt(const QString &promptId);
    /// Tells the user where keys are bound if hot keys do not work over every window.
    void reportKeys();
    void bringToFront();
    void showLogin();
    void deleteLoginLater();
    void startOverlay();
    void applyConfigAtStart();
    void handleSessionExpired();

    Collaborators m_collaborators;
    PromptPresets m_prompts;
    std::optional<VantiroConfig> m_config;
    std::unique_ptr<LoginPresenter> m_login;
    std::unique_ptr<OverlayPresenter> m_overlay;
    std::unique_ptr<MenuBarController> m_menuBar;
};

} // namespace quellora
