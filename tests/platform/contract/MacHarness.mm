#include "platform/contract/MacHarness.h"

#include "hotkeys/HotkeyCombo.h"
#include "platform/contract/OtherProgram.h"
#include "platform/macos/CarbonKeys.h"

#include <QCursor>
#include <QHash>
#include <QWindow>
#include <QtTest>

#include <unistd.h>

#import <AppKit/AppKit.h>
#import <Carbon/Carbon.h>

namespace quellora {
namespace {

// Pause between moving the pointer and clicking, for code that tracks the pointer: there is no
// observable effect to wait for.
constexpr int pointerPauseMilliseconds = 100;

// kCGNullWindowID is a macro.
constexpr CGWindowID noWindow = 0;

/// The window server's number of a window; 0 if it has no native window.
quint64 windowNumber(const QWindow &window)
{
    if (!window.handle())
        return 0;
    const NSView *view = (__bridge NSView *)reinterpret_cast<void *>(window.winId());
    return static_cast<quint64>(view.window.windowNumber);
}

/// Numbers of the windows on the screen, front to back.
QList<quint64> windowsFrontToBack()
{
    QList<quint64> numbers;
    const CFArrayRef windows = CGWindowListCreate(kCGWindowListOptionOnScreenOnly, noWindow);
    if (!windows)
        return numbers;
    for (CFIndex i = 0; i < CFArrayGetCount(windows); ++i)
        numbers << static_cast<quint64>(
            reinterpret_cast<quintptr>(CFArrayGetValueAtIndex(windows, i)));
    CFRelease(windows);
    return numbers;
}

CGKeyCode keyCodeOf(const QString &key)
{
    if (key == QStringLiteral("escape"))
        return 53;
    if (key == QStringLiteral("space"))
        return 49;
    return static_cast<CGKeyCode>(CarbonKeys::keyCode(HotkeyCombo::parse(key)->key()).value());
}

bool post(CGEventRef event)
{
    if (!event)
        return false;
    CGEventPost(kCGHIDEventTap, event);
    CFRelease(event);
    return true;
}

bool postKey(CGKeyCode keyCode, bool isDown)
{
    return post(CGEventCreateKeyboardEvent(nullptr, keyCode, isDown));
}

/// Key codes of the modifier keys (left side of the keyboard).
QList<CGKeyCode> modifierKeys(Qt::KeyboardModifiers modifiers)
{
    QList<CGKeyCode> keys;
    if (modifiers & Qt::ControlModifier)
        keys << 59;
    if (modifiers & Qt::AltModifier)
        keys << 58;
    if (modifiers & Qt::ShiftModifier)
        keys << 56;
    if (modifiers & Qt::MetaModifier)
        keys << 55;
    return keys;
}

bool postMouse(CGEventType type, const QPoint &position)
{
    const CGPoint point = {double(position.x()), double(position.y())};
    return post(CGEventCreateMouseEvent(nullptr, type, point, kCGMouseButtonLeft));
}

/// In the other program: registers a hot key exclusively or unregisters it.
int claimExclusively(quint32 keyCode, quint32 modifiers, bool taken)
{
    static QHash<quint64, EventHotKeyRef> claimed;
    const quint64 combo = quint64(modifiers) << 32 | keyCode;
    if (!taken)
        return UnregisterEventHotKey(claimed.take(combo));
    EventHotKeyRef hotkey = nullptr;
    const OSStatus status =
        RegisterEventHotKey(keyCode, modifiers, {0x4F544852, keyCode}, GetApplicationEventTarget(),
                            kEventHotKeyExclusive, &hotkey);
    if (status == noErr)
        claimed.insert(combo, hotkey);
    return status;
}

} // namespace

int MacHarness::runOtherProgram(int argc, char **argv)
{
    return OtherProgram::run(argc, argv, {claimExclusively, windowNumber, true});
}

QString MacHarness::prepare()
{
    if (!AXIsProcessTrusted())
        return QStringLiteral("keys and clicks cannot be posted: allow the program that runs the "
                              "test under Privacy & Security, Accessibility");
    return {};
}

QMap<Ability, QString> MacHarness::missingAbilities() const
{
    return {
        {Ability::ChangeReducedMotion,
         QStringLiteral("changes of reduced motion (programs cannot change this setting)")},
        {Ability::ChangeCompositing,
         QStringLiteral("changes of compositing (this system always composites)")},
        {Ability::ChangeStatusArea,
         QStringLiteral("changes of the status area (this system always has one)")},
        {Ability::ChangePermissions,
         QStringLiteral("changes of the permissions (only the user can change them)")},
        {Ability::FailOpening,
         QStringLiteral("failures to open (the user's programs cannot be made to fail)")},
        {Ability::ObserveOpened,
         QStringLiteral("arguments of the default programs (a stand-in would have to become the "
                        "user's default program)")},
    };
}

std::unique_ptr<OtherWindow> MacHarness::openOther()
{
    auto other = OtherProgram::start();
    m_other = other.get();
    return other;
}

bool MacHarness::isAbove(QWindow &ours, const OtherWindow &other)
{
    const QList<quint64> order = windowsFrontToBack();
    const auto upper = order.indexOf(windowNumber(ours));
    const auto lower = order.indexOf(static_cast<const OtherProgram &>(other).window());
    return ours.isVisible() && upper >= 0 && lower > upper;
}

bool MacHarness::isProgramActive()
{
    return NSWorkspace.sharedWorkspace.frontmostApplication.processIdentifier == ::getpid();
}

bool MacHarness::press(const QList<Combo> &combos)
{
    bool posted = true;
    for (const Combo &combo : combos) {
        // One event per key, as from a keyboard; keys are released even after an error.
        const QList<CGKeyCode> modifiers = modifierKeys(combo.modifiers);
        const CGKeyCode key = keyCodeOf(combo.key);
        for (const CGKeyCode modifier : modifiers)
            posted = postKey(modifier, true) && posted;
        posted = postKey(key, true) && posted;
        posted = postKey(key, false) && posted;
        for (auto it = modifiers.rbegin(); it != modifiers.rend(); ++it)
            posted = postKey(*it, false) && posted;
    }
    return posted;
}

bool MacHarness::click(const QPoint &position)
{
    if (!postMouse(kCGEventMouseMoved, position) ||
        !QTest::qWaitFor([&position] { return QCursor::pos() == position; }))
        return false;
    QTest::qWait(pointerPauseMilliseconds);
    return postMouse(kCGEventLeftMouseDown, position) && postMouse(kCGEventLeftMouseUp, position);
}

bool MacHarness::claimHotkey(const Combo &combo)
{
    return m_other &&
           m_other->claim(keyCodeOf(combo.key), CarbonKeys::modifierFlags(combo.modifiers), true);
}

bool MacHarness::releaseHotkey(const Combo &combo)
{
    return m_other &&
           m_other->claim(keyCodeOf(combo.key), CarbonKeys::modifierFlags(combo.modifiers), false);
}

void MacHarness::setDark(bool on)
{
    // Changes this program only, not the user's setting.
    NSApp.appearance =
        [NSAppearance appearanceNamed:on ? NSAppearanceNameDarkAqua : NSAppearanceNameAqua];
}

} // namespace quellora
