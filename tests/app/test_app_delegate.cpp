#include "app/AppDelegate.h"
#include "app/MenuBarController.h"
#include "app/RemoteCommand.h"
#include "backend/HeartbeatService.h"
#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "base/UserDefaults.h"
#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "hotkeys/HotkeyCombo.h"
#include "hotkeys/HotkeyManager.h"
#include "query/PermissionChecker.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

class FakeLogin : public LoginPresenter
{
public:
    explicit FakeLogin(int &alive) : m_alive(alive) { ++m_alive; }
    ~FakeLogin() override { --m_alive; }
    void showWindow() override { shown = true; }
    void bringToFront() override { ++broughtToFront; }
    int broughtToFront = 0;
    bool shown = false;

private:
    int &m_alive;
};

class FakeOverlay : public OverlayPresenter
{
public:
    FakeOverlay(QStringList &calls, int &alive, std::function<void()> onConfig)
        : m_calls(calls), m_alive(alive), m_onConfig(std::move(onConfig))
    {
        ++m_alive;
    }
    ~FakeOverlay() override { --m_alive; }
    void closeWindow() override { m_calls << "closeWindow"; }
    void finishAtOnce() override { m_calls << "finishAtOnce"; }
    void show() override { m_calls << "show"; }
    void triggerCaptureAndSend(CaptureTarget target) override
    {
        const QStringList names{QString(), " window", " region", " last region"};
        m_calls << "triggerCaptureAndSend" + names.at(static_cast<int>(target));
    }
    void captureNoSend() override { m_calls << "captureNoSend"; }
    void captureAndSendPrompt(const QString &prompt) override
    {
        m_calls << "captureAndSendPrompt " + prompt;
    }
    void clearContent() override { m_calls << "clearContent"; }
    void toggleVisibility() override { m_calls << "toggleVisibility"; }
    void adjustOpacity(double delta) override
    {
        m_calls << QStringLiteral("adjustOpacity %1").arg(delta);
    }
    void startNewThread() override { m_calls << "startNewThread"; }
    void toggleClicks() override { m_calls << "toggleClicks"; }
    void retry() override { m_calls << "retry"; }
    void showNotice(const QString &text) override { m_calls << "showNotice " + text; }
    void applyConfigAtStart(const AppConfigResponse &config) override
    {
        m_calls << "applyConfigAtStart " + config.model;
        if (m_onConfig)
            m_onConfig();
    }

private:
    QStringList &m_calls;
    int &m_alive;
    std::function<void()> m_onConfig;
};

class FakeStatusItem : public StatusItem
{
public:
    FakeStatusItem(bool button, bool symbol, int &alive, int &symbolsSet,
                   QList<StatusMenuItem> &menu, std::function<void()> &action)
        : m_button(button)
        , m_symbol(symbol)
        , m_alive(alive)
        , m_symbolsSet(symbolsSet)
        , m_menu(menu)
        , m_action(action)
    {
        ++m_alive;
    }
    ~FakeStatusItem() override { --m_alive; }
    bool hasButton() const override { return m_button; }
    bool setSymbol(const QString &name, const QString &) override
    {
        ++m_symbolsSet;
        return m_symbol && name == "gear";
    }
    void setMenu(const QList<StatusMenuItem> &items) override { m_menu = items; }
    void setAction(std::function<void()> action) override { m_action = std::move(action); }

private:
    bool m_button;
    bool m_symbol;
    int &m_alive;
    int &m_symbolsSet;
    QList<StatusMenuItem> &m_menu;
    std::function<void()> &m_action;
};

class FakeStatusBar : public StatusBar
{
public:
    std::unique_ptr<StatusItem> makeItem() override
    {
        return std::make_unique<FakeStatusItem>(button, symbol, alive, symbolsSet, menu, click);
    }
    bool button = true;
    bool symbol = true;
    int alive = 0;
    int symbolsSet = 0;
    QList<StatusMenuItem> menu;
    std::function<void()> click;
};

class NullShell : public ApplicationShell
{
public:
    Capability becomeAccessory() override { return Capability::applied(); }
    Capability makeOrdinary(QWindow &) override { return Capability::applied(); }
    Capability installEditMenu() override { return Capability::applied(); }
    Capability activate(QWindow &) override { return Capability::applied(); }
};

AppConfigResponse account()
{
    AppConfigResponse config;
    config.model = "m";
    config.tokensUsed = 5;
    config.tokenCap = 50;
    config.heartbeatIntervalSeconds = 60;
    return config;
}

struct Fixture
{
    /// @param desktopShortcuts shortcuts of the desktop, if it has any
    explicit Fixture(DesktopShortcuts *desktopShortcuts = nullptr)
        : hotkeys(
              globalHotkeys, Vocabulary::linuxDesktop(), &std::chrono::steady_clock::now,
              [](const HotkeyId &, const QString &) {}, desktopShortcuts)
    {
        session.setHeartbeatStopper([this] { heartbeat.stop(); });
        delegate = std::make_unique<AppDelegate>(collaborators());
    }

    AppDelegate::Collaborators collaborators()
    {
        return {shell,
                desktop,
                defaults,
                notifications,
                session,
                heartbeat,
                hotkeys,
                permissions,
                [this] {
                    ++configLoads;
                    return config;
                },
                [this] {
                    auto login = std::make_unique<FakeLogin>(loginsAlive);
                    lastLogin = login.get();
                    return login;
                },
                [this](const VantiroConfig &given) {
                    overlayConfig = given;
                    return std::make_unique<FakeOverlay>(calls, overlaysAlive, onConfig);
                },
                [this] {
                    return std::make_unique<MenuBarController>(
                        statusBar, session, notifications, workspace, QUrl("http://host/account"),
                        [this] { ++quits; });
                },
                [this](const QString &token) { shippedTokens << token; },
                [this] { ++quits; }};
    }

    void launch() { delegate->applicationDidFinishLaunching(); }
    void signIn(const AppConfigResponse &response)
    {
        auth.setSession("token", response);
        lastLogin->onLoginSuccess();
    }

    /// Sends a command as another process does; returns the refusal.
    QString command(const char *name) { return delegate->handleCommand(*findRemoteCommand(name)); }

    LogCapture log;
    NullShell shell;
    FakeDesktopSession desktop;
    JsonUserDefaults defaults;
    NotificationCenter notifications;
    QNetworkAccessManager network;
    AuthService auth{network, BackendEndpoints("http://host"), [] { return DeviceFields(); }};
    SessionManager session{auth, notifications};
    HeartbeatService heartbeat{session, notifications, [this] {
                                   ++polls;
                                   return std::make_unique<AuthService>(
                                       network, BackendEndpoints("http://127.0.0.1:1"),
                                       [] { return DeviceFields(); });
                               }};
    FakePermissions systemPermissions;
    PermissionChecker permissions{systemPermissions, Vocabulary::macOS()};
    FakeGlobalHotkeys globalHotkeys;
    HotkeyManager hotkeys;
    FakeStatusBar statusBar;
    FakeWorkspace workspace;
    VantiroConfig config;
    int polls = 0;
    int configLoads = 0;
    int loginsAlive = 0;
    int overlaysAlive = 0;
    int quits = 0;
    QStringList calls;
    QStringList shippedTokens;
    std::function<void()> onConfig;
    std::optional<VantiroConfig> overlayConfig;
    FakeLogin *lastLogin = nullptr;
    std::unique_ptr<AppDelegate> delegate;
};

} // namespace

class TestAppDelegate : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void heartbeatPollsAfterSleep()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        f.log.clear();
        f.desktop.resume();
        QCOMPARE(f.polls, 1);
        QCOMPARE(f.log.lines, QStringList{"[HeartbeatService] Woken up — polling now"});
    }

    void keysAreOfferedToTheDesktopAfterSignIn()
    {
        FakeDesktopShortcuts shortcuts;
        Fixture f(&shortcuts);
        f.launch();
        QCOMPARE(shortcuts.offers, 0);
        f.signIn(account());
        QCOMPARE(shortcuts.offers, 1);
        QCOMPARE(shortcuts.offered.size(), f.hotkeys.ids().size());
        // No message while the desktop has not answered.
        QVERIFY(f.permissions.problemLines().isEmpty());
        shortcuts.answer(Capability::applied());
        QVERIFY(f.permissions.problemLines().isEmpty());
        shortcuts.press("toggle");
        QTRY_COMPARE(f.calls.last(), "toggleVisibility");
    }

    void oneSentenceTellsWhereKeysAreBound_data()
    {
        QTest::addColumn<bool>("isUnavailable");
        QTest::addColumn<QString>("line");
        QTest::newRow("some windows") << false
                                      << "**Hotkeys work only over some windows in this session.** "
                                         "Settings, under Desktop shortcuts, shows how to bind the "
                                         "keys in your desktop instead.";
        QTest::newRow("no window") << true
                                   << "**In this session only your desktop can bind keys.** "
                                      "Settings, under Desktop shortcuts, shows how to bind them "
                                      "to Quellora's commands.";
    }
    void oneSentenceTellsWhereKeysAreBound()
    {
        QFETCH(bool, isUnavailable);
        QFETCH(QString, line);
        FakeDesktopShortcuts shortcuts;
        Fixture f(&shortcuts);
        if (isUnavailable) {
            for (const HotkeyActionInfo &row : hotkeyActions) {
                if (const auto combo = HotkeyCombo::parse(row.defaultCombo))
                    f.globalHotkeys.claim(*combo, {});
            }
        }
        f.launch();
        f.signIn(account());
        shortcuts.answer(Capability::unsupported("No."));
        QCOMPARE(f.permissions.problemLines(), QStringList{line});
        shortcuts.answer(Capability::applied());
        QVERIFY(f.permissions.problemLines().isEmpty());
        shortcuts.answer(Capability::unsupported("No."));
        QCOMPARE(f.permissions.problemLines(), QStringList{line});
        // Whoever uses a command knows about them, in later runs, too.
        QCOMPARE(f.command("toggle"), QString());
        QVERIFY(f.permissions.problemLines().isEmpty());
        shortcuts.answer(Capability::unsupported("Still not."));
        QVERIFY(f.permissions.problemLines().isEmpty());
        QCOMPARE(f.defaults.boolValue("actionCommandsUsed"), true);
    }

    void unobservedSessionIsLogged()
    {
        Fixture f;
        f.desktop.answer = Capability::unsupported("no news");
        f.launch();
        QVERIFY(f.log.lines.contains("[AppDelegate] WARNING: no news"));
    }

    void launchSequence()
    {
        Fixture f;
        f.launch();
        QCOMPARE(f.log.lines,
                 (QStringList{
                     "[AppDelegate] applicationDidFinishLaunching",
                     "[AppDelegate] Activation policy set to .accessory (no Dock/App Switcher)",
                     "[AppDelegate] Edit menu installed to prime standard key-equivalent shortcuts",
                     "[PermissionChecker] Accessibility permission trusted: true",
                     "[PermissionChecker] Screen Recording permission granted: true",
                     "[HotkeyManager] Registered Capture -> ctrl+alt+cmd+c",
                     "[HotkeyManager] Registered Clear -> ctrl+alt+cmd+x",
                     "[HotkeyManager] Registered Toggle -> ctrl+alt+cmd+t",
                     "[HotkeyManager] Registered Opacity Up -> ctrl+alt+cmd+]",
                     "[HotkeyManager] Registered Opacity Down -> ctrl+alt+cmd+[",
                     "[HotkeyManager] Registered Capture (No Send) -> ctrl+alt+cmd+shift+c",
                     "[HotkeyManager] Registered New Thread -> cmd+n",
                     "[AppDelegate] Login window shown, overlay deferred until sign-in"}));
        QVERIFY(f.lastLogin->shown);
        QVERIFY(!f.delegate->overlay());
        QVERIFY(!f.delegate->menuBar());
        QCOMPARE(f.configLoads, 1);
    }

    void savedHotkeysAreRegistered()
    {
        Fixture f;
        f.defaults.setStringDictionary("hotkeyBindings", {{"clear", "ctrl+alt+k"}});
        f.launch();
        QCOMPARE(f.hotkeys.activeHotkeys().value("clear"), "ctrl+alt+k");
        QCOMPARE(f.hotkeys.activeHotkeys().value("capture"), "ctrl+alt+cmd+c");
    }

    void hotkeysHaveNoEffectBeforeSignIn()
    {
        Fixture f;
        f.launch();
        f.log.clear();
        for (const HotkeyActionInfo &row : hotkeyActions)
            Q_EMIT f.hotkeys.pressed(row.action);
        QVERIFY(f.log.lines.isEmpty());
        QVERIFY(f.calls.isEmpty());
    }

    void hotkeysTriggerOverlayActions()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        f.calls.clear();
        for (const HotkeyActionInfo &row : hotkeyActions)
            Q_EMIT f.hotkeys.pressed(row.action);
        QCOMPARE(f.calls,
                 (QStringList{"triggerCaptureAndSend", "clearContent", "toggleVisibility",
                              "adjustOpacity 0.1", "adjustOpacity -0.1", "captureNoSend",
                              "startNewThread", "triggerCaptureAndSend window",
                              "triggerCaptureAndSend region", "triggerCaptureAndSend last region",
                              "toggleClicks", "retry"}));
    }

    void promptsHaveHotkeys()
    {
        Fixture f;
        f.defaults.setStringDictionary("hotkeyBindings", {{"prompt.explain", "ctrl+alt+e"}});
        f.launch();
        const auto press = [&f] {
            const bool isRegistered =
                f.globalHotkeys.pressCombo(Qt::ControlModifier | Qt::AltModifier | Qt::Key_E);
            QCoreApplication::processEvents();
            return isRegistered;
        };
        // Without effect before sign-in.
        QVERIFY(press());
        QVERIFY(f.calls.filter("captureAndSendPrompt").isEmpty());
        f.signIn(account());
        f.calls.clear();
        Q_EMIT f.hotkeys.promptPressed("explain");
        Q_EMIT f.hotkeys.promptPressed("unknown");
        QCOMPARE(f.calls,
                 QStringList{"captureAndSendPrompt " + PromptPresets::builtIn().first().text});
        // A prompt that is deleted has no key.
        f.defaults.setString("promptPresets", "[]");
        QVERIFY(!press());
    }

    void commandsAreRefusedBeforeSignIn()
    {
        Fixture f;
        f.launch();
        for (const RemoteCommand &command : remoteCommands) {
            if (command.kind == RemoteCommand::Kind::Action)
                QCOMPARE(f.command(command.name), QString("sign in first"));
        }
        QVERIFY(f.calls.isEmpty());
        QCOMPARE(f.command("quit"), QString());
        QCOMPARE(f.quits, 1);
    }

    void commandsTriggerOverlayActions()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        f.calls.clear();
        f.log.clear();
        for (const RemoteCommand &command : remoteCommands) {
            if (!command.takesOperand())
                QCOMPARE(f.command(command.name), QString());
        }
        QCOMPARE(f.calls,
                 (QStringList{"triggerCaptureAndSend", "clearContent", "toggleVisibility",
                              "adjustOpacity 0.1", "adjustOpacity -0.1", "captureNoSend",
                              "startNewThread", "triggerCaptureAndSend window",
                              "triggerCaptureAndSend region", "triggerCaptureAndSend last region",
                              "toggleClicks", "retry", "show"}));
        QCOMPARE(f.quits, 1);
        QVERIFY(f.log.lines.contains("[AppDelegate] Command: capture"));
        // The session may end at any time.
        Q_EMIT f.notifications.sessionExpired();
        QCOMPARE(f.command("capture"), QString("sign in first"));
    }

    void commandSendsAPromptByItsName()
    {
        Fixture f;
        f.launch();
        const auto send = [&](const QString &name) {
            return f.delegate->handleCommand(*findRemoteCommand("prompt"), name);
        };
        const PromptPreset explain = PromptPresets::builtIn().first();
        QCOMPARE(send(explain.name), QString("sign in first"));
        f.signIn(account());
        f.calls.clear();
        f.log.clear();
        const QStringList sent{"captureAndSendPrompt " + explain.text};
        for (const QString &name : {explain.name, explain.name.toUpper(), explain.id}) {
            QCOMPARE(send(name), QString());
            QCOMPARE(std::exchange(f.calls, {}), sent);
        }
        QCOMPARE(send("Nothing"), QString("no prompt has this name"));
        QVERIFY(f.calls.isEmpty());
        // Prompts' names are the user's.
        QVERIFY(f.log.lines.contains("[AppDelegate] Command: prompt"));
        QVERIFY(!f.log.lines.join('\n').contains(explain.name));
        // A name comes before an id.
        f.defaults.setString(
            "promptPresets",
            R"([{"id":"a","name":"b","text":"A"},{"id":"b","name":"c","text":"B"}])");
        QCOMPARE(send("b"), QString());
        QCOMPARE(f.calls, QStringList("captureAndSendPrompt A"));
    }

    void overlayStartSequence()
    {
        Fixture f;
        f.config.overlay.width = 700;
        f.launch();
        f.log.clear();
        f.signIn(account());
        QCOMPARE(f.overlayConfig, f.config);
        QCOMPARE(f.calls, (QStringList{"show", "applyConfigAtStart m"}));
        QCOMPARE(f.log.lines.first(), "[AppDelegate] OverlayWindowController created");
        QCOMPARE(f.log.lines.at(1), "[AppDelegate] Overlay window shown");
        QCOMPARE(f.log.lines.at(2), "[HeartbeatService] Starting, interval: 60.0s");
        QCOMPARE(f.log.lines.at(3), "[MenuBarController] init");
        QCOMPARE(f.log.lines.mid(f.log.lines.size() - 2),
                 (QStringList{"[AppDelegate] MenuBarController created",
                              "[AppDelegate] Vantiro Overlay running (single-process, no "
                              "pipeline.py dependency)."}));
        QVERIFY(f.heartbeat.isScheduled());
        QVERIFY(f.shippedTokens.isEmpty());
        f.calls.clear();
        f.delegate->menuBar()->onShowOverlay();
        QCOMPARE(f.calls, QStringList{"show"});
    }

    void logsAreShippedOnlyOnRequest()
    {
        AppConfigResponse config = account();
        config.requestLogs = true;
        Fixture f;
        f.launch();
        f.signIn(config);
        QCOMPARE(f.shippedTokens, QStringList{"token"});

        config.requestLogs = false;
        Fixture off;
        off.launch();
        off.signIn(config);
        QVERIFY(off.shippedTokens.isEmpty());
    }

    void logsAreNotShippedWithoutToken()
    {
        AppConfigResponse config = account();
        config.requestLogs = true;
        Fixture f;
        f.launch();
        // The session ends while the overlay applies the configuration.
        f.onConfig = [&f] { f.auth.clearSession(); };
        f.signIn(config);
        QVERIFY(!f.session.sessionToken());
        QVERIFY(f.calls.contains("applyConfigAtStart m"));
        QCOMPARE(f.shippedTokens, QStringList());
    }

    void noConfigurationMeansNoHeartbeat()
    {
        Fixture f;
        f.launch();
        f.lastLogin->onLoginSuccess();
        QCOMPARE(f.calls, QStringList{"show"});
        QVERIFY(!f.heartbeat.isScheduled());
        QVERIFY(f.delegate->menuBar());
    }

    void expiryReplacesOverlayWithLogin()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        f.log.clear();
        f.calls.clear();
        QSignalSpy ended(&f.notifications, &NotificationCenter::sessionDidEnd);
        Q_EMIT f.notifications.sessionExpired();
        QCOMPARE(f.log.lines,
                 (QStringList{QString::fromUtf8("[AppDelegate] sessionExpired received — tearing "
                                                "down overlay, showing login window"),
                              "[AuthService] Session cleared from memory"}));
        QCOMPARE(f.calls, QStringList{"closeWindow"});
        QCOMPARE(ended.count(), 1);
        QVERIFY(!f.delegate->overlay() && !f.delegate->menuBar());
        QCoreApplication::processEvents();
        QCOMPARE(f.overlaysAlive, 0);
        QCOMPARE(f.statusBar.alive, 0);
        QCOMPARE(f.loginsAlive, 1);
        QVERIFY(!f.auth.sessionToken());
        QVERIFY(!f.heartbeat.isScheduled());

        f.signIn(account());
        QCOMPARE(f.configLoads, 1);
        QVERIFY(f.delegate->overlay());
    }

    void loginWindowIsDestroyedAfterSignIn()
    {
        Fixture f;
        f.launch();
        QCOMPARE(f.loginsAlive, 1);
        f.signIn(account());
        QVERIFY(!f.delegate->loginWindow());
        QCoreApplication::processEvents();
        QCOMPARE(f.loginsAlive, 0);
        QVERIFY(f.delegate->overlay());
    }

    void repeatedExpiryKeepsLoginWindow()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        Q_EMIT f.notifications.sessionExpired();
        const LoginPresenter *login = f.delegate->loginWindow();
        f.calls.clear();
        f.log.clear();
        Q_EMIT f.notifications.sessionExpired();
        QCOMPARE(f.delegate->loginWindow(), login);
        QCOMPARE(f.log.lines.last(), "[AuthService] Session cleared from memory");
        QVERIFY(f.calls.isEmpty());
        QCoreApplication::processEvents();
        QCOMPARE(f.loginsAlive, 1);
        QCOMPARE(f.overlaysAlive, 0);
        f.signIn(account());
        QVERIFY(f.delegate->overlay());
    }

    void expiryBeforeSignInKeepsLoginWindow()
    {
        Fixture f;
        f.launch();
        const LoginPresenter *login = f.delegate->loginWindow();
        Q_EMIT f.notifications.sessionExpired();
        QCOMPARE(f.delegate->loginWindow(), login);
        QCOMPARE(f.loginsAlive, 1);
    }

    void expiryDefersDestructionOfCallers()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        // Destruction is deferred, because their functions may be on the stack.
        f.delegate->menuBar()->signOutClicked();
        QCOMPARE(f.overlaysAlive, 1);
        QCOMPARE(f.statusBar.alive, 1);
        QCoreApplication::processEvents();
        QCOMPARE(f.overlaysAlive, 0);
        QCOMPARE(f.statusBar.alive, 0);
    }

    void repeatedSignInDoesNotLeak()
    {
        Fixture f;
        f.launch();
        const auto processEvents = [] {
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            QCoreApplication::processEvents();
        };
        for (int cycle = 0; cycle < 100; ++cycle) {
            f.signIn(account());
            processEvents();
            QCOMPARE(f.overlaysAlive, 1);
            QCOMPARE(f.statusBar.alive, 1);
            QCOMPARE(f.loginsAlive, 0);
            QVERIFY(f.heartbeat.isScheduled());
            if (cycle % 2 == 0)
                f.delegate->menuBar()->signOutClicked();
            else
                Q_EMIT f.notifications.sessionExpired();
            processEvents();
            QCOMPARE(f.overlaysAlive, 0);
            QCOMPARE(f.statusBar.alive, 0);
            QCOMPARE(f.loginsAlive, 1);
            QVERIFY(!f.heartbeat.isScheduled());
            QVERIFY(!f.auth.sessionToken());
        }
        QCOMPARE(f.configLoads, 1);
        QCOMPARE(f.globalHotkeys.registered.size(), 7);
        QCOMPARE(f.globalHotkeys.installs, 1);
    }

    void secondStartRaisesCurrentWindow()
    {
        Fixture f;
        QCOMPARE(f.command("show"), QString());
        f.launch();
        QCOMPARE(f.command("show"), QString());
        QCOMPARE(f.lastLogin->broughtToFront, 1);
        f.signIn(account());
        f.calls.clear();
        QCOMPARE(f.command("show"), QString());
        QCOMPARE(f.calls, QStringList{"show"});
        Q_EMIT f.notifications.sessionExpired();
        QCOMPARE(f.command("show"), QString());
        QCOMPARE(f.lastLogin->broughtToFront, 1);
    }

    void statusItemClickShowsOverlay()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        f.calls.clear();
        f.log.clear();
        f.statusBar.click();
        QCOMPARE(f.calls, QStringList{"show"});
        QCOMPARE(f.log.lines, QStringList{"[MenuBarController] Show Quellora clicked"});
    }

    void accountPageFailureShowsNotice()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        f.calls.clear();
        f.delegate->menuBar()->manageAccountClicked();
        QCoreApplication::processEvents();
        QVERIFY(f.calls.isEmpty());
        f.workspace.answer = FakeWorkspace::failure();
        f.delegate->menuBar()->manageAccountClicked();
        QTRY_COMPARE(f.calls, QStringList{"showNotice Could not open the browser: nobody answers"});
    }

    void terminationClearsSessionAndHotkeys()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        f.log.clear();
        f.delegate->applicationWillTerminate();
        QCOMPARE(f.log.lines,
                 (QStringList{
                     QString::fromUtf8("[AppDelegate] applicationWillTerminate — clearing session"),
                     "[AuthService] Session cleared from memory",
                     "[HotkeyManager] Stopped, all hotkeys unregistered"}));
        QVERIFY(f.hotkeys.activeHotkeys().isEmpty());
    }

    void statusMenuRowsAndActions()
    {
        Fixture f;
        f.launch();
        f.log.clear();
        f.signIn(account());
        QVERIFY(f.log.contains("[MenuBarController] statusItem.button exists"));
        QVERIFY(f.log.contains("[MenuBarController] NSImage(systemSymbolName: \"gear\") created "
                               "successfully"));
        QVERIFY(f.log.contains("[MenuBarController] Status item and menu built (Show Quellora, "
                               "Manage Account, Usage [disabled], Settings [disabled], Sign Out, "
                               "Quit)"));
        QStringList titles;
        for (const auto &item : std::as_const(f.statusBar.menu))
            titles << item.title;
        QCOMPARE(titles, (QStringList{"Show Quellora", "", "Manage Account", "Usage", "Settings",
                                      "", "Sign Out", "Quit"}));
        QVERIFY(!f.statusBar.menu.at(3).action && !f.statusBar.menu.at(4).action);

        f.log.clear();
        f.statusBar.menu.at(2).action();
        QCOMPARE(f.log.lines, QStringList{"[MenuBarController] Manage Account clicked, opening "
                                          "http://host/account"});
        f.statusBar.menu.at(7).action();
        QCOMPARE(f.quits, 1);
        QVERIFY(f.log.contains("[MenuBarController] Quit clicked, terminating application"));
    }

    void signOutEndsThenExpiresSession()
    {
        Fixture f;
        f.launch();
        f.signIn(account());
        QStringList order;
        connect(&f.notifications, &NotificationCenter::sessionDidEnd, this,
                [&order] { order << "ended"; });
        connect(&f.notifications, &NotificationCenter::sessionExpired, this,
                [&order] { order << "expired"; });
        f.log.clear();
        f.delegate->menuBar()->signOutClicked();
        QCOMPARE(order.first(), "ended");
        QVERIFY(order.contains("expired"));
        QCOMPARE(f.log.lines.first(), "[MenuBarController] Sign Out clicked");
        QCoreApplication::processEvents();
        QCOMPARE(f.loginsAlive, 1);
    }

    void missingSymbolOrTrayIsOnlyLogged()
    {
        Fixture f;
        f.statusBar.symbol = false;
        f.launch();
        f.signIn(account());
        QVERIFY(f.log.contains(
            QString::fromUtf8("[MenuBarController] ERROR: NSImage(systemSymbolName: \"gear\") "
                              "returned nil — symbol lookup failed")));
        QCOMPARE(f.statusBar.menu.size(), 8);

        Fixture bare;
        bare.statusBar.button = false;
        bare.launch();
        bare.signIn(account());
        QVERIFY(bare.log.contains(QString::fromUtf8(
            "[MenuBarController] ERROR: statusItem.button is nil — cannot assign an image")));
        QCOMPARE(bare.statusBar.menu.size(), 8);
        // The symbol is set anyway, for a tray that appears later.
        QCOMPARE(bare.statusBar.symbolsSet, 1);
    }
};

QUELLORA_TEST(QGuiApplication, TestAppDelegate)
#include "test_app_delegate.moc"
