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

/// A key with modifiers held, as a user presses it.
struct Combo
{
    /// One of HotkeyCombo::bindableKeys, "escape" or "space".
    QString key;
    /// Named as in GlobalHotkeys.
    Qt::KeyboardModifiers modifiers = {};
};

/// Another program's window: what it tells is what that program saw itself.
class OtherWindow
{
public:
    virtual ~OtherWindow() = default;
    /// Names of the keys that went down in it, in order; modifier keys do not count.
    virtual QStringList keys() const = 0;
    /// Where it was clicked, in points of the screen.
    virtual QList<QPoint> clicks() const = 0;
    /// How often it lost the keyboard.
    virtual int keyboardLosses() const = 0;
};

/// What not every system lets a test bring about or see. Whatever is not listed here is essential:
/// a system without it fails the suite.
enum class Ability {
    ChangeDarkness,
    ChangeMotion,
    ChangeCompositing,
    ChangeStatusArea,
    ChangePermissions,
    ClaimHotkeys,
    SeeWhatIsOpened,
    FailOpening,
    DrawSymbols,
    FindCaptureTool,
};

/// The world around the program in the contract tests of one system: lets a test act as the user,
/// as other programs and as the system's settings, and see from outside what came of it.
///
/// Actions return once the system has taken them; their effects are awaited by the test. Main
/// thread only, with the application object in place.
class PlatformHarness
{
public:
    virtual ~PlatformHarness() = default;

    /// Milliseconds until something that has not happened counts as failed.
    virtual int patience() const { return 5000; }
    /// Called once; says what the system lacks for the whole suite, empty when it is ready.
    virtual QString prepare() = 0;
    /// What cannot be brought about or seen here, each with what therefore is not observed.
    virtual QMap<Ability, QString> missing() const = 0;
    /// The roles under test, as the program has them after its start. One at a time.
    virtual std::unique_ptr<Platform> makePlatform() = 0;

    /// Another program opens a window that fills the screen, comes to the front and has the
    /// keyboard. Null when that failed.
    virtual std::unique_ptr<OtherWindow> openOther() = 0;
    /// Whether our window is on the screen and before the other program's.
    virtual bool isAbove(QWindow &ours, const OtherWindow &other) = 0;
    /// Whether the system has our program as the one that the user works in.
    virtual bool isProgramInFront() = 0;
    /// The user presses and releases the combinations one after the other.
    virtual bool press(const QList<Combo> &combos) = 0;
    /// The user clicks.
    /// @param place in points of the screen
    virtual bool click(const QPoint &place) = 0;
    /// The modifier of the keys for Copy, Paste and their like.
    virtual Qt::KeyboardModifiers editModifier() const = 0;

    // Each of these only where the ability is not missing.
    /// Another program takes or gives up a hot key; false when it could not.
    virtual bool claimHotkey(const Combo &) { return false; }
    virtual bool releaseHotkey(const Combo &) { return false; }
    virtual void setDark(bool) {}
    virtual void setReducesMotion(bool) {}
    virtual void setCompositing(bool) {}
    virtual void setStatusArea(bool) {}
    /// All permissions given or taken.
    virtual void setPermitted(bool) {}
    /// From now on nothing that is opened gets done until it is let go.
    virtual void holdOpening(bool) {}
    /// From now on nothing opens what is handed over.
    virtual void failOpening() {}
    /// What the user's default programs were given so far.
    virtual QList<QUrl> opened() { return {}; }
    /// A symbol that this system has.
    virtual QString symbolName() const { return {}; }
    /// Where a program of an installed Quellora lies now that the test runs from the build folder.
    virtual QString installedPath(const QString &program) const { return program; }
};

} // namespace quellora
