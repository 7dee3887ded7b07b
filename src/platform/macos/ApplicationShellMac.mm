#include "platform/macos/ApplicationShellMac.h"

#include "platform/macos/Cocoa.h"
#include "platform/macos/EditMenu.h"

#include <QGuiApplication>
#include <QWindow>

#include <cstddef>

namespace {

/// The toolkit's window that has the keyboard; null when a window of the system's own has it. The
/// toolkit itself goes on naming its last one then.
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
/// Items without a target would reach the toolkit's view, which says that it knows cut:, copy:,
/// paste: and selectAll: but raises an exception for menu items that the toolkit did not make, and
/// knows nothing of undo: and redo:. It gets the keys instead.
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
    // Dock and switcher list programs, not windows.
    QObject::connect(&window, &QWindow::visibleChanged, &window, [](bool isVisible) {
        [NSApp setActivationPolicy:isVisible ? NSApplicationActivationPolicyRegular
                                             : NSApplicationActivationPolicyAccessory];
    });
    return Capability::applied();
}

Capability ApplicationShellMac::installEditMenu()
{
    // Menu items do not keep their target.
    static QuelloraEditMenuTarget *const target = [[QuelloraEditMenuTarget alloc] init];
    NSMenu *edit = [[NSMenu alloc] initWithTitle:@"Edit"];
    // Always there, whatever has the keyboard.
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
