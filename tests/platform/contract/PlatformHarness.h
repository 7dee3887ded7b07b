#pragma once

#include "platform/Platform.h"

#include <QList>
#include <QMap>
#include <QPoint>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>

namespace quellora {

/// A key combination as pressed by the user.
struct Combo
{
    /// One of HotkeyCombo::bindableKeys, "escape" or "space".
    QString key;
    /// Named as in GlobalHotkeys.
    Qt::KeyboardModifiers modifiers = {};
};

/// Another program's window; reports the events that the program itself received.
class OtherWindow
{
public:
    virtual ~OtherWindow() = default;
    /// Names of the keys pressed in it, in order, without modifier keys.
    virtual QStringList keys() const = 0;
    /// Positions of the clicks in it, in screen coordinates (points).
    virtual QList<QPoint> clicks() const = 0;
    /// How often it lost the keyboard focus.
    virtual int focusLosses() const = 0;
};

/// Optional abilities of a harness. Everything not listed here is required: without it the suite
/// fails.
enum class Ability {
    ChangeDarkMode,
    ChangeReducedMotion,
    ChangeCompositing,
    ChangeStatusArea,
    ChangePermissions,
    PassClicks,
    RaiseCovered,
    GrabHotkeys,
    ClaimHotkeys,
    ObserveOpened,
    FailOpening,
    RenderSymbols,
    FindCaptureTool,
    /// Neither a click on the panel nor its keyboard makes the program the active one.
    StayInactive,
};

/// The environment of the program in the contract tests of one system: acts as the user, as other
/// programs and as the system's settings, and observes the effects from outside the program.
///
/// Actions return once the system has accepted them; the tests wait for the effects. Main thread
/// only; requires the application object.
class PlatformHarness
{
public:
    virtual ~PlatformHarness() = default;

    /// Milliseconds to wait for an expected effect.
    virtual int timeout() const { return 5000; }
    /// Called once before all tests.
    /// @return why the suite cannot run; empty if it can
    virtual QString prepare() = 0;
    /// The abilities that this system lacks, each with a text saying what is not covered.
    virtual QMap<Ability, QString> missingAbilities() const = 0;
    /// Creates the platform under test as the program does at start. One instance at a time.
    virtual std::unique_ptr<Platform> makePlatform() = 0;

    /// Opens another program's window, which fills the screen, is in front and has the keyboard
    /// focus; null on failure.
    virtual std::unique_ptr<OtherWindow> openOther() = 0;
    /// Whether our window is visible and above the other program's.
    virtual bool isAbove(QWindow &ours, const OtherWindow &other) = 0;
    /// Whether our program is the active one.
    virtual bool isProgramActive() = 0;
    /// Presses and releases the combinations one after the other, as the user.
    virtual bool press(const QList<Combo> &combos) = 0;
    /// Clicks with the left button, as the user.
    /// @param position in screen coordinates (points)
    virtual bool click(const QPoint &position) = 0;
    /// The modifier of the standard shortcuts for Copy, Paste etc.
    virtual Qt::KeyboardModifiers editModifier() const = 0;

    // Called only if the corresponding ability is not missing.
    /// Another program registers or releases a hot key; false on failure.
    virtual bool claimHotkey(const Combo &) { return false; }
    virtual bool releaseHotkey(const Combo &) { return false; }
    virtual void setDark(bool) {}
    virtual void setReducesMotion(bool) {}
    virtual void setCompositing(bool) {}
    virtual void setStatusArea(bool) {}
    /// Grants or revokes all permissions.
    virtual void setPermitted(bool) {}
    /// While on, opening an address or a file does not complete.
    virtual void holdOpening(bool) {}
    /// Makes every later attempt to open an address or a file fail.
    virtual void failOpening() {}
    /// Addresses and files passed to the user's default programs so far.
    virtual QList<QUrl> opened() { return {}; }
    /// Name of a symbol that this system provides.
    virtual QString symbolName() const { return {}; }
    /// The path in the build folder of a program that is installed beside the application.
    virtual QString installedPath(const QString &program) const { return program; }
};

} // namespace quellora
