#pragma once

#include "platform/ScreenLayout.h"
#include "platform/ShortcutGuide.h"
#include "platform/Vocabulary.h"

#include <QFuture>
#include <QImage>
#include <QKeyCombination>
#include <QList>
#include <QObject>
#include <QPointF>
#include <QRect>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <tl/expected.hpp>

#include <functional>
#include <memory>
#include <optional>

class QWindow;

namespace quellora {

class DesktopSession;
class DesktopShortcuts;
class Notifications;
class ScreenSource;
class UserDefaults;

/// The outcome of a request to the platform.
class Capability
{
public:
    enum class State { Applied, BestEffort, Unsupported };

    static Capability applied() { return {State::Applied, {}}; }
    static Capability bestEffort(QString reason) { return {State::BestEffort, std::move(reason)}; }
    static Capability unsupported(QString reason)
    {
        return {State::Unsupported, std::move(reason)};
    }

    State state() const { return m_state; }
    /// Why the request was not fully applied; empty if it was.
    const QString &reason() const { return m_reason; }
    bool isApplied() const { return m_state == State::Applied; }

private:
    Capability(State state, QString reason) : m_state(state), m_reason(std::move(reason)) {}

    State m_state;
    QString m_reason;
};

/// Window-system operations on the floating panel window. All sizes are in points (logical pixels).
/// Main thread only.
class PanelWindow
{
public:
    virtual ~PanelWindow() = default;

    /// Places the window above ordinary windows and on every desktop, hides it from task switchers
    /// and prevents activation when it is shown. Call before the first show. Idempotent; may be
    /// called again after the native window was recreated.
    virtual Capability applyPanelTraits(QWindow &window) = 0;
    /// Excludes the window from screen captures and screen sharing. Call before the first show.
    /// BestEffort if only some capture methods honour it.
    virtual Capability excludeFromCapture(QWindow &window) = 0;
    /// Passes pointer events inside @p responseRect (window coordinates) to the window underneath;
    /// with an empty rectangle the whole window receives events again. May be called before the
    /// first show; persists when the window is hidden or its native window is recreated.
    virtual Capability setClickThrough(QWindow &window, const QRect &responseRect) = 0;
    /// Shows the window above others without activating the application or taking the focus.
    virtual Capability orderFront(QWindow &window) = 0;
    /// Gives the window the keyboard focus when the user clicks a text input. Never Applied while
    /// the window is not visible; hiding the window returns the focus.
    virtual Capability makeKey(QWindow &window) = 0;
    /// Returns the keyboard focus to the window that had it before makeKey(). No effect if
    /// @p window does not have the focus.
    virtual void resignKey(QWindow &window) = 0;
    /// Whether translucent windows are composited; otherwise the panel is drawn opaque and with
    /// square corners.
    virtual bool isCompositing() const = 0;
    /// Called on the main thread whenever isCompositing() changes.
    virtual void onCompositingChanged(std::function<void()> handler) = 0;
    /// Calls @p onMoved with the pointer's offset since this call, in points, until
    /// stopFollowingPointer(). For moving and resizing the window during a press.
    /// @return Unsupported if the positions in the window's own mouse events are reliable
    virtual Capability followPointer(QWindow &, std::function<void(QPointF)>)
    {
        return Capability::unsupported(
            QStringLiteral("Mouse events have their position on the screen"));
    }
    /// No effect unless followPointer() was Applied.
    virtual void stopFollowingPointer() {}
    /// Whether the panel stays above this program's own dialogs too, whatever they ask for.
    virtual bool coversDialogs() const { return false; }
};

/// System-wide hot keys. On every system Qt::ControlModifier is Control, Qt::AltModifier Alt or
/// Option, and Qt::MetaModifier Super or Command.
class GlobalHotkeys
{
public:
    /// Identifies a hot key while it is registered; never 0.
    using Registration = quint64;
    /// Why a hot key was not registered.
    struct Failure
    {
        enum class Kind {
            /// The combination is already registered, by this or another program.
            Taken,
            /// The system has no such key.
            UnsupportedKey,
            /// Hot keys cannot be registered at the moment.
            Unavailable,
        };
        Kind kind = Kind::Unavailable;
        /// The system's error code, for log messages.
        int status = 0;
    };
    using Result = tl::expected<Registration, Failure>;

    virtual ~GlobalHotkeys() = default;

    /// Starts delivering presses: @p onPress is called on the main thread with the pressed hot key.
    virtual void installHandler(std::function<void(Registration)> onPress) = 0;
    virtual void removeHandler() = 0;
    /// Registers one hot key. Fails if this program already registered the combination or, where
    /// the system reports it, another program did.
    /// @param combo a letter, a digit or one of []-=;',./\` with its modifiers
    virtual Result registerHotkey(QKeyCombination combo) = 0;
    /// No effect for an unknown registration.
    virtual void unregisterHotkey(Registration registration) = 0;
};

/// A key press in a window of this program, used to record a new hot key. Some systems also report
/// presses of modifier keys alone, with an empty character.
struct KeyDown
{
    /// Mapped as in GlobalHotkeys.
    Qt::KeyboardModifiers modifiers;
    /// The lower-case character that the key types in the current layout without modifiers; empty
    /// for keys that cannot be bound.
    QString character;
    bool isEscape = false;
};

/// Intercepts key presses in this program's windows before menus, shortcuts and text fields get
/// them. Main thread only.
class KeyMonitor
{
public:
    virtual ~KeyMonitor() = default;
    /// Delivers every key press to @p onKeyDown only, which may call remove().
    virtual void install(std::function<void(const KeyDown &)> onKeyDown) = 0;
    /// No effect if not installed.
    virtual void remove() = 0;
};

/// Privacy permissions.
class Permissions
{
public:
    virtual ~Permissions() = default;
    virtual bool isAccessibilityTrusted() const = 0;
    virtual bool isScreenRecordingGranted() const = 0;
    /// May show the system's own prompt.
    virtual void requestScreenRecording() = 0;
    /// Called on the main thread when a permission changes, if the system reports the change.
    virtual void onChanged(std::function<void()> handler) = 0;
};

/// The system's colour scheme, reduced-motion setting and text size.
class Appearance
{
public:
    virtual ~Appearance() = default;
    virtual bool isDark() const = 0;
    /// Called on the main thread whenever isDark() changes.
    virtual void onChanged(std::function<void()> handler) = 0;
    /// Whether the user asked for reduced motion.
    virtual bool reducesMotion() const = 0;
    /// Called on the main thread whenever reducesMotion() changes.
    virtual void onMotionChanged(std::function<void()> handler) = 0;
    /// Factor by which the user wants text enlarged or reduced; 1 by default.
    virtual double textScale() const { return 1; }
    /// Called on the main thread whenever textScale() changes.
    virtual void onTextScaleChanged(std::function<void()>) {}
};

/// Why an address or a file was not opened.
struct OpenFailure
{
    enum class Kind {
        /// Not a web or mail address, or not an existing regular file.
        Refused,
        /// The program could not be started or reported an error.
        Failed,
    };

    Kind kind = Kind::Failed;
    /// The program or item in question, e.g. "the browser" or "the file".
    QString what;
    /// E.g. "xdg-open is not installed".
    QString reason;

    /// The user-visible message.
    QString text() const { return QStringLiteral("Could not open %1: %2").arg(what, reason); }
};

using OpenResult = tl::expected<void, OpenFailure>;

/// Opens addresses and files with the user's default programs. Non-blocking: the future finishes
/// on any thread. A helper program that is still running after a timeout counts as success.
/// Failures are logged.
class Workspace
{
public:
    virtual ~Workspace() = default;
    virtual QFuture<OpenResult> openUrl(const QUrl &url) = 0;
    virtual QFuture<OpenResult> openFile(const QString &path) = 0;
};

/// The desktop's status area (system tray).
class StatusArea
{
public:
    virtual ~StatusArea() = default;
    /// Whether the desktop currently has one.
    virtual bool isAvailable() const = 0;
    /// Called on the main thread whenever isAvailable() changes.
    virtual void onChanged(std::function<void()> handler) = 0;
};

/// The symbol images that the system provides.
class SystemSymbols
{
public:
    virtual ~SystemSymbols() = default;
    /// The named symbol in one colour on a transparent background; null if the system lacks it.
    /// @param points font size of the symbol
    /// @param scale pixels per point
    virtual QImage image(const QString &name, double points, int scale) const = 0;
};

/// Application-level integration.
class ApplicationShell
{
public:
    virtual ~ApplicationShell() = default;
    /// Removes the program's windows from the Dock or task bar and the application switcher, except
    /// those passed to makeOrdinary().
    virtual Capability becomeAccessory() = 0;
    /// Exempts a window that has not been shown yet from becomeAccessory() and gives it a dark
    /// title bar where the system supports that, regardless of the desktop's theme.
    virtual Capability makeOrdinary(QWindow &window) = 0;
    /// Enables the shortcuts for Undo, Redo, Cut, Copy, Paste and Select All in text fields.
    virtual Capability installEditMenu() = 0;
    /// Raises the window and gives it the focus (login window only).
    virtual Capability activate(QWindow &window) = 0;
};

/// Information about this machine that is sent at sign-in.
class DeviceInfo
{
public:
    virtual ~DeviceInfo() = default;
    virtual QString osVersion() const = 0;
    /// "arm64" or "x86_64".
    virtual QString cpuArch() const = 0;
};

/// The screen-capture program and its fixed leading arguments; the output path is appended.
struct CaptureTool
{
    QString program;
    QStringList arguments;
    /// The arguments for capturing all screens instead of one; empty if the tool cannot.
    QStringList allScreensArguments = {};
    /// The arguments for capturing the window in front; empty if the tool cannot.
    QStringList windowArguments = {};
    /// The tool's exit status if no window is in front.
    int noWindowStatus = 0;
    /// The arguments for one picture of Platform::screenLayout(), without the pointer.
    QStringList choiceArguments = {};
};

/// All platform interfaces of one system. Created once at start-up; outlives its users. In every
/// interface, setting a handler replaces the previous one.
class Platform
{
public:
    virtual ~Platform() = default;
    virtual PanelWindow &panelWindow() = 0;
    virtual GlobalHotkeys &globalHotkeys() = 0;
    virtual KeyMonitor &keyMonitor() = 0;
    virtual Permissions &permissions() = 0;
    virtual Appearance &appearance() = 0;
    virtual Workspace &workspace() = 0;
    virtual StatusArea &statusArea() = 0;
    virtual SystemSymbols &symbols() = 0;
    virtual ApplicationShell &shell() = 0;
    virtual DeviceInfo &deviceInfo() = 0;
    virtual DesktopSession &desktopSession() = 0;
    virtual Notifications &notifications() = 0;
    virtual CaptureTool captureTool() const = 0;
    /// Takes the pictures instead of the capture tool; null where the tool takes them.
    virtual ScreenSource *screenSource() { return nullptr; }
    /// The screens as they lie in a picture of all of them, in the toolkit's order; those at its
    /// end may be missing if they cannot be in it.
    virtual ScreenLayout screenLayout() const { return ScreenLayout::inPoints(); }
    /// The desktop's own shortcuts; null where globalHotkeys() receives keys from every window.
    virtual DesktopShortcuts *desktopShortcuts() { return nullptr; }
    /// Does not change while the program runs.
    virtual Vocabulary vocabulary() const = 0;
    virtual ShortcutGuide shortcutGuide() const = 0;
    /// Per-user Application Support directory (not created).
    virtual QString applicationSupportDirectory() const = 0;
    /// The system's store for the program's preferences.
    virtual std::unique_ptr<UserDefaults> makeUserDefaults() const = 0;

    /// Redirects standard output to the log file where nothing else captures it. Call first.
    static void prepareOutput();
    /// Sets the environment variables and attributes that Qt's platform plugin reads at start-up.
    /// Call before creating the application object.
    static void prepareProcess();
    /// As prepareProcess(), for a command that shows nothing and needs no display.
    static void prepareWithoutDisplay();
    /// Whether the interface should be drawn without OpenGL: there is no usable graphics processor
    /// and the environment does not select a renderer. Call before prepareProcess().
    static bool prefersSoftwareRendering();
    /// Sets the function to call when the connection to the display is lost. It is called on any
    /// thread, possibly on several at once, and must not return. Requires the application object.
    /// No effect on systems that quit programs before the display goes away.
    static void setDisplayLossHandler(void (*handler)());
    /// Identifies the display session among the sessions of one user, e.g. ":0". Callable at any
    /// time.
    static QString displaySession();
    /// Creates the implementation for the running window system; falls back to NullPlatform if
    /// there is none, e.g. offscreen. Requires the application object.
    static std::unique_ptr<Platform> create();
};

} // namespace quellora
