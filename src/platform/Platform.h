#pragma once

#include "platform/Vocabulary.h"

#include <QFuture>
#include <QImage>
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

/// What really happened when a platform capability was asked for.
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
    /// Why it is not fully there; empty when applied.
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
    /// Gives the window the keyboard focus, because the user pressed on something that takes text.
    /// Never Applied for a window that is not on the screen; hiding the window gives the focus
    /// back.
    virtual Capability makeKey(QWindow &window) = 0;
    /// Gives the keyboard focus back to the window that had it before makeKey(); without effect
    /// when @p window does not have it.
    virtual void resignKey(QWindow &window) = 0;
    /// Whether translucent windows are composited; the panel is drawn opaque and square otherwise.
    virtual bool isCompositing() const = 0;
    /// Called on the main thread whenever isCompositing() changes.
    virtual void onCompositingChanged(std::function<void()> handler) = 0;
};

/// Global hot keys: registration by key name and modifiers, press events carrying a numeric id.
class GlobalHotkeys
{
public:
    enum Modifier : quint32 {
        Command = 0x0100,
        Shift = 0x0200,
        Option = 0x0800,
        Control = 0x1000,
    };
    /// Opaque registration; 0 is none.
    using Registration = quint64;
    struct Result
    {
        /// The platform's status code; 0 on success.
        int status = 0;
        Registration registration = 0;
    };

    virtual ~GlobalHotkeys() = default;

    /// Starts delivering presses: @p onPress gets the id given at registration, on the main thread.
    virtual void installHandler(std::function<void(quint32 id)> onPress) = 0;
    virtual void removeHandler() = 0;
    /// Registers one hot key system-wide. A combination that is registered already, by this program
    /// or, where the system tells, by another one, is refused with a status.
    /// @param key lower-case key name of the key table, e.g. "c", "]"
    /// @param keyCode the key's ANSI virtual key code
    /// @param modifiers combination of Modifier flags
    /// @param signature four-character code of the application
    virtual Result registerHotkey(const QString &key, quint32 keyCode, quint32 modifiers,
                                  quint32 signature, quint32 id) = 0;
    /// Without effect for a registration that is not in force.
    virtual void unregisterHotkey(Registration registration) = 0;
};

/// One key going down in a window of this program, as the recorder of a new combo sees it. Some
/// systems report modifier keys by themselves, too, without a character.
struct KeyDown
{
    /// Combination of GlobalHotkeys::Modifier flags that are held.
    quint32 modifiers = 0;
    /// What the key writes in the current layout without any modifier, lower-case; empty for keys
    /// that cannot be bound.
    QString character;
    bool isEscape = false;
};

/// Takes the key presses of this program's windows ahead of its menus, shortcuts and text fields.
/// Main thread only.
class KeyMonitor
{
public:
    virtual ~KeyMonitor() = default;
    /// From now on every key press goes to @p onKeyDown and nowhere else; it may call remove().
    virtual void install(std::function<void(const KeyDown &)> onKeyDown) = 0;
    /// Ends it; without effect when not installed.
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
    /// Called on the main thread whenever an answer changes, as far as the system tells.
    virtual void onChanged(std::function<void()> handler) = 0;
};

/// How the system looks and moves.
class Appearance
{
public:
    virtual ~Appearance() = default;
    virtual bool isDark() const = 0;
    /// Called on the main thread whenever isDark() changes.
    virtual void onChanged(std::function<void()> handler) = 0;
    /// Whether the user asked for less movement on the screen.
    virtual bool reducesMotion() const = 0;
    /// Called on the main thread whenever reducesMotion() changes.
    virtual void onMotionChanged(std::function<void()> handler) = 0;
};

/// Why an address or a file was not opened.
struct OpenFailure
{
    enum class Kind {
        /// It is not handed on: an address of neither the web nor mail, a file that is not there.
        Refused,
        /// Nothing here opened it.
        Failed,
    };

    Kind kind = Kind::Failed;
    /// What should have opened, e.g. "the browser".
    QString what;
    /// E.g. "xdg-open is not installed".
    QString reason;

    /// The sentence for the user.
    QString text() const { return QStringLiteral("Could not open %1: %2").arg(what, reason); }
};

using OpenResult = tl::expected<void, OpenFailure>;

/// Opens addresses and files with the user's default programs, without blocking. The result comes
/// as soon as it is known, on any thread; a program that goes on running counts as opened after a
/// while. Every failure is logged, too.
class Workspace
{
public:
    virtual ~Workspace() = default;
    virtual QFuture<OpenResult> openUrl(const QUrl &url) = 0;
    virtual QFuture<OpenResult> openFile(const QString &path) = 0;
};

/// The desktop's place for status items.
class StatusArea
{
public:
    virtual ~StatusArea() = default;
    /// Whether there is one now.
    virtual bool isAvailable() const = 0;
    /// Called on the main thread whenever isAvailable() changes.
    virtual void onChanged(std::function<void()> handler) = 0;
};

/// The system's own set of symbol images.
class SystemSymbols
{
public:
    virtual ~SystemSymbols() = default;
    /// The named symbol, drawn in one colour on a transparent ground; null when the system has no
    /// such symbol.
    /// @param points size of the symbol's font
    /// @param scale pixels per point
    virtual QImage image(const QString &name, double points, int scale) const = 0;
};

/// Application-level integration.
class ApplicationShell
{
public:
    virtual ~ApplicationShell() = default;
    /// No Dock or task-bar entry, not in the application switcher; not for the windows that are
    /// made ordinary.
    virtual Capability becomeAccessory() = 0;
    /// Makes the window, not yet shown, an exception from becomeAccessory(): it is in the task bar
    /// and in the switcher like other programs' windows. Its title bar is dark where the system
    /// offers that, whatever the desktop's theme.
    virtual Capability makeOrdinary(QWindow &window) = 0;
    /// Undo, Redo, Cut, Copy, Paste and Select All key equivalents in text fields.
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
    /// The same for a picture of all screens instead of one; empty where the tool has no such
    /// choice.
    QStringList allScreensArguments = {};
};

/// All roles of one system. Created once at start; outlives everything that uses it. In every role
/// a handler that is set replaces the one before.
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
    /// The same at every call.
    virtual Vocabulary vocabulary() const = 0;
    /// Per-user Application Support directory (not created).
    virtual QString applicationSupportDirectory() const = 0;
    /// The place where this system keeps a program's preferences.
    virtual std::unique_ptr<UserDefaults> makeUserDefaults() const = 0;

    /// To be called first of all: sees to it that standard output is kept where support finds it,
    /// as far as nobody who started the program does.
    static void prepareOutput();
    /// To be called before the application object exists: environment and attributes that the
    /// windowing system reads at start.
    static void prepareProcess();
    /// To be called with the application object there. When the display goes away under the
    /// program, @p leave is called on any thread that notices, perhaps on several, and must not
    /// return. Does nothing where the system ends its programs in order.
    static void leaveWithDisplay(void (*leave)());
    /// Tells the display sessions of one user apart, e.g. ":0"; callable at any time.
    static QString displaySession();
    /// The port for the running windowing system; needs the application object. Falls back to the
    /// null port (everything Unsupported) offscreen.
    static std::unique_ptr<Platform> create();
};

} // namespace quellora
