#include "platform/macos/ApplicationShellMac.h"

#include "platform/macos/Cocoa.h"
#include "platform/macos/EditMenu.h"

#include <QGuiApplication>
#include <QWindow>

#include <cstddef>

namespace {

/// The QWindow that is the key window; null when another kind of window is, for which Qt still
/// reports its own last focus window.
QWindow *keyWindow()
{
    NSWindow *key = NSApp.keyWindow;
    if (!key)
        return nullptr;
    const QWindowList windows = QGuiApplication::topLevelWindows();
    for (QWindow *window : windows) {
        if (quellora::Cocoa::window(*window) == key)
            return window;
    }
    return nullptr;
}

} // namespace

/// Runs the commands of the Edit menu.
///
/// Items without a target would reach Qt's view, which claims to implement cut:, copy:, paste: and
/// selectAll: but raises an exception for menu items that Qt did not create, and which lacks undo:
/// and redo:. This target sends key presses to the view instead.
@interface QuelloraEditMenuTarget : NSObject
- (void)runEditCommand:(NSMenuItem *)item;
@end

@implementation QuelloraEditMenuTarget
- (void)runEditCommand:(NSMenuItem *)item
{
    const quellora::EditCommand &command = quellora::editCommands.at(std::size_t(item.tag));
    if (QWindow *window = keyWindow()) {
        quellora::sendStandardKey(*window, command.standardKey);
        return;
    }
    [NSApp sendAction:NSSelectorFromString(
                          quellora::Cocoa::string(QString::fromLatin1(command.action)))
                   to:nil
                 from:item];
}
@end

namespace quellora {

Capability ApplicationShellMac::becomeAccessory()
{
    if ([NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory])
        return Capability::applied();
    return Capability::unsupported(
        QStringLiteral("The system did not take the program out of the Dock"));
}

Capability ApplicationShellMac::makeOrdinary(QWindow &window)
{
    window.create();
    NSWindow *native = Cocoa::window(window);
    if (!native)
        return Capability::unsupported(QStringLiteral("The window could not be made"));
    native.appearance = [NSAppearance appearanceNamed:NSAppearanceNameDarkAqua];
    // The Dock and the switcher list programs, not windows.
    QObject::connect(&window, &QWindow::visibleChanged, &window, [](bool isVisible) {
        [NSApp setActivationPolicy:isVisible ? NSApplicationActivationPolicyRegular
                                             : NSApplicationActivationPolicyAccessory];
    });
    return Capability::applied();
}

Capability ApplicationShellMac::installEditMenu()
{
    // Menu items do not retain their target.
    static QuelloraEditMenuTarget *const target = [[QuelloraEditMenuTarget alloc] init];
    NSMenu *edit = [[NSMenu alloc] initWithTitle:@"Edit"];
    // The items stay enabled whatever has the focus.
    edit.autoenablesItems = NO;
    NSInteger tag = 0;
    for (const EditCommand &command : editCommands) {
        NSMenuItem *item = [edit addItemWithTitle:Cocoa::string(QString::fromLatin1(command.title))
                                           action:@selector(runEditCommand:)
                                    keyEquivalent:Cocoa::string(QString(QLatin1Char(command.key)))];
        item.keyEquivalentModifierMask = command.withShift
                                             ? NSEventModifierFlagCommand | NSEventModifierFlagShift
                                             : NSEventModifierFlagCommand;
        item.target = target;
        item.tag = tag++;
        if (command.endsGroup)
            [edit addItem:[NSMenuItem separatorItem]];
    }
    NSMenuItem *editItem = [[NSMenuItem alloc] initWithTitle:@"" action:nil keyEquivalent:@""];
    editItem.submenu = edit;
    NSMenu *bar = [[NSMenu alloc] initWithTitle:@""];
    [bar addItem:editItem];
    NSApp.mainMenu = bar;
    return Capability::applied();
}

Capability ApplicationShellMac::activate(QWindow &window)
{
    window.show();
    NSWindow *native = Cocoa::window(window);
    if (!native)
        return Capability::unsupported(QStringLiteral("The window could not be made"));
    [NSApp activateIgnoringOtherApps:YES];
    [native makeKeyAndOrderFront:nil];
    window.requestActivate();
    if (native.keyWindow)
        return Capability::applied();
    return Capability::bestEffort(
        QStringLiteral("The system has not brought the program to the front yet"));
}

} // namespace quellora
