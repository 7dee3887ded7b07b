#pragma once

#include "platform/Vocabulary.h"

#include <QFuture>
#include <QImage>
#include <QKeyCombination>
#include <QList>
#include <QObject>
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
    /// Why the request was not fully applied; empty when it was.
    const QString &reason() const { return m_reason; }
    bool isApplied() const { return m_state == State::Applied; }

private:
    Capability(State state, QString reason) : m_state(state), m_reason(std::move(reason)) {}

    State m_state;
    QString m_reason;
};

/// Traits of the floating panel window. All sizes are points (logical pixels), main thread only.
class PanelWindow
{
public:
    virtual ~PanelWindow() = default;

    /// Above ordinary windows, on every desktop, out of task switchers, never activated by being
    /// shown. Call before the first show; idempotent, may be repeated when the native window was
    /// recreated.
    virtual Capability applyPanelTraits(QWindow &window) = 0;
    /// Keeps the window out of screen captures and sharing. Call before the first show. BestEffort
    /// where only some ways of capturing leave it out.
    virtual Capability excludeFromCapture(QWindow &window) = 0;
    /// Lets pointer events inside @p responseRect (window coordinates) pass to the application
    /// underneath; an empty rectangle makes the whole window take events again. May be called
    /// before the first show; stays in force when the window is hidden or gets a new native window.
    virtual Capability setClickThrough(QWindow &window, const QRect &responseRect) = 0;
    /// Shows the window above others without activating the application or taking the focus.
    virtual Capability orderFront(QWindow &window) = 0;
    /// Gives the window the keyboard focus when the user clicks a text input. Never Applied while
    /// the window is not on the screen; hiding the window returns the focus.
    virtual Capability makeKey(QWindow &window) = 0;
    /// Returns the keyboard focus to the window that had it before makeKey(); without effect when
    /// @p window does not have it.
    virtual void resignKey(QWindow &window) = 0;
    /// Whether translucent windows are composited; the panel is drawn opaque and square otherwise.
    virtual bool isCompositing() const = 0;
    /// Called on the main thread whenever isCompositing() changes.
    virtual void onCompositingChanged(std::function<void()> handler) = 0;
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
            /// Another program or another hot key of this one holds the combination.
            Taken,
            /// The system has no such key.
            UnsupportedKey,
            /// The system registers no hot keys at the moment.
            Unavailable,
        };
        Kind kind = Kind::Unavailable;
        /// The system's own number of the error, for log lines.
        int status = 0;
    };
    using Result = tl::expected<Registration, Failure>;

    virtual ~GlobalHotkeys() = default;

    /// Starts delivering presses: @p onPress gets the hot key that was pressed, on the main thread.
    virtual void installHandler(std::function<void(Registration)> onPress) = 0;
    virtual void removeHandler() = 0;
    /// Registers one hot key. Refuses a combination that this program has registered or, where the
    /// system reports it, another program.
    /// @param combo a letter, a digit or one of []-=;',./\` with its modifiers
    virtual Result registerHotkey(QKeyCombination combo) = 0;
    /// Without effect for a registration that is not in force.
    virtual void unregisterHotkey(Registration registration) = 0;
};

/// A key press in a window of this program, for the recorder of a new combo. Some systems also
/// report modifier keys alone, without a character.
struct KeyDown
{
    /// Named as in GlobalHotkeys.
    Qt::KeyboardModifiers modifiers;
    /// The lower-case character of the key in the current layout without modifiers; empty for keys
    /// that cannot be bound.
    QString character;
    bool isEscape = false;
};

/// Intercepts the key presses of this program's windows before menus, shortcuts and text fields.
/// Main thread only.
class KeyMonitor
{
public:
    virtual ~KeyMonitor() = default;
    /// Sends every key press to @p onKeyDown only, which may call remove().
    virtual void install(std::function<void(const KeyDown &)> onKeyDown) = 0;
    /// Without effect when not installed.
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
    /// Called on the main thread when a permission changes, as far as the system reports it.
    virtual void onChanged(std::function<void()> handler) = 0;
};

/// The system's colour scheme and its setting for animations.
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
};

/// Why an address or a file was not opened.
struct OpenFailure
{
    enum class Kind {
        /// Not passed on: neither a web nor a mail address, or a missing file.
        Refused,
        /// No program opened it.
        Failed,
    };

    Kind kind = Kind::Failed;
    /// The program that should have opened it, e.g. "the browser".
    QString what;
    /// E.g. "xdg-open is not installed".
    QString reason;

    /// The sentence for the user.
    QString text() const { return QStringLiteral("Could not open %1: %2").arg(what, reason); }
};

using OpenResult = tl::expected<void, OpenFailure>;

/// Opens addresses and files with the user's default programs, without blocking. The result arrives
/// on any thread; a helper program that is still running after a while counts as success. Failures
/// are logged.
class Workspace
{
public:
    virtual ~Workspace() = default;
    virtual QFuture<OpenResult> openUrl(const QUrl &url) = 0;
    virtual QFuture<OpenResult> openFile(const QString &path) = 0;
};

/// The desktop's area for status items.
class StatusArea
{
public:
    virtual ~StatusArea() = default;
    /// Whether the desktop has one at present.
    virtual bool isAvailable() const = 0;
    /// Called on the main thread whenever isAvailable() changes.
    virtual void onChanged(std::function<void()> handler) = 0;
};

/// The system's own set of symbol images.
class SystemSymbols
{
public:
    virtual ~SystemSymbols() = default;
    /// The named symbol in one colour on a transparent background; null when the system lacks it.
    /// @param points size of the symbol's font
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
    /// Exempts a window that was not yet shown from becomeAccessory(). Its title bar is dark where
    /// the system supports that, regardless of the desktop's theme.
    virtual Capability makeOrdinary(QWindow &window) = 0;
    /// Makes the keys for Undo, Redo, Cut, Copy, Paste and Select All work in text fields.
    virtual Capability installEditMenu() = 0;
    /// Brings the program's window to the front and gives it the focus (login window only).
    virtual Capability activate(QWindow &window) = 0;
};

/// Facts about this machine sent at sign-in.
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
    /// The arguments that capture all screens instead of one; empty where the tool cannot.
    QStringList allScreensArguments = {};
};

/// All roles of one system. Created once at start; outlives its users. In every role a new handler
/// replaces the previous one.
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
    virtual CaptureTool captureTool() const = 0;
    /// Constant while the program runs.
    virtual Vocabulary vocabulary() const = 0;
    /// Per-user Application Support directory (not created).
    virtual QString applicationSupportDirectory() const = 0;
    /// The system's store for the program's preferences.
    virtual std::unique_ptr<UserDefaults> makeUserDefaults() const = 0;

    /// Redirects standard output to the log file unless the parent process captures it. Call first.
    static void prepareOutput();
    /// Sets the environment and the attributes that the windowing system reads at start. Call
    /// before the application object exists.
    static void prepareProcess();
    /// Sets the function called when the connection to the display is lost. It runs on any thread,
    /// possibly on several at once, and must not return. Requires the application object. Does
    /// nothing on systems that quit programs before the display goes away.
    static void setDisplayLossHandler(void (*handler)());
    /// Identifies the display session among those of one user, e.g. ":0"; callable at any time.
    static QString displaySession();
    /// The port for the running windowing system; needs the application object. Falls back to the
    /// null port (everything Unsupported) offscreen.
    static std::unique_ptr<Platform> create();
};

} // namespace quellora
