"""Mistakes that the self-test injects, as plain data.

File names with a folder are declarations (sdk/include), the others are sources of the port. Texts are
literal and must occur; every occurrence is replaced.
"""
from dataclasses import dataclass

# The stage that must catch a mistake; earlier stages must let it pass.
COMPILE = "compile"
DECLARATIONS = "declarations"
LINK = "link"
# Known not to be caught by any stage.
NOWHERE = "nowhere"

APPKIT = "AppKit/AppKit.h"
CARBON = "Carbon/Carbon.h"
HOTKEYS = "GlobalHotkeysMac.mm"
KEEPER = "PanelKeeperMac.mm"
SHELL = "ApplicationShellMac.mm"
COCOA = "Cocoa.mm"


@dataclass(frozen=True)
class Mistake:
    """One mistake.

    name       description
    caught_by  the stage that must catch it
    says       part of that stage's message, to exclude other errors
    changes    (file, text, replacement)s
    """
    name: str
    caught_by: str
    says: str
    changes: tuple


MISTAKES = (
    # Mistakes in the port only.
    Mistake("misspelled selector", COMPILE, "declares the selector 'orderAway:'", (
        (KEEPER, "[native orderOut:nil]", "[native orderAway:nil]"),)),
    Mistake("misspelled property", COMPILE, "property 'hideOnDeactivate' not found", (
        (KEEPER, "native.hidesOnDeactivate = NO", "native.hideOnDeactivate = NO"),)),
    Mistake(
        "wrong name of an enum's member", COMPILE,
        "undeclared identifier 'NSWindowCollectionBehaviorJoinsAllSpaces'", (
        (KEEPER, "NSWindowCollectionBehaviorCanJoinAllSpaces |",
         "NSWindowCollectionBehaviorJoinsAllSpaces |"),)),
    Mistake(
        "string for an event mask", COMPILE,
        "cannot initialize a parameter of type 'NSEventMask'", (
        ("KeyMonitorMac.mm", "NSEventMaskKeyDown,", '@"keyDown",'),)),
    Mistake(
        "member of another enum", COMPILE,
        "cannot initialize a parameter of type 'NSApplicationActivationPolicy'", (
        (SHELL, "NSApplicationActivationPolicyAccessory", "NSBitmapImageFileTypePNG"),)),
    Mistake("option of another set", COMPILE, "between different enumeration types", (
        (KEEPER, "NSWindowCollectionBehaviorCanJoinAllSpaces |",
         "NSWindowStyleMaskNonactivatingPanel |"),)),
    Mistake(
        "property of NSPanel on an NSWindow", COMPILE,
        "property 'becomesKeyOnlyIfNeeded' not found", (
        (KEEPER, "native.hidesOnDeactivate = NO", "native.becomesKeyOnlyIfNeeded = YES"),)),
    Mistake(
        "assignment to a read-only property", COMPILE,
        "assignment to readonly property", (
        (KEEPER, "native.hasShadow = YES", "native.keyWindow = YES"),)),
    Mistake("misspelled @selector", COMPILE, "undeclared selector 'runEditComand:'", (
        (SHELL, "action:@selector(runEditCommand:)", "action:@selector(runEditComand:)"),)),
    Mistake("missing __bridge", COMPILE, "requires a bridged cast", (
        (COCOA, "(__bridge NSView *)", "(NSView *)"),)),
    Mistake(
        "block of a local monitor that returns nothing", COMPILE,
        "with an rvalue of type 'void (^)(NSEvent *", (
        (COCOA, "handler:^NSEvent *(NSEvent *event) {", "handler:^void(NSEvent *event) {"),
        (COCOA, "return call(event);", "call(event);"))),
    Mistake(
        "block with an extra argument", COMPILE,
        "with an rvalue of type 'void (^)(NSEvent *", (
        (COCOA, "handler:^(NSEvent *event) {", "handler:^(NSEvent *event, id) {"),)),
    Mistake(
        "hot-key id by pointer", COMPILE,
        "no matching function for call to 'RegisterEventHotKey'", (
        (HOTKEYS, "EventHotKeyRef hotkey = nullptr;",
         "EventHotKeyRef hotkey = nullptr;\nconst EventHotKeyID named = {signature, id};"),
        (HOTKEYS, "RegisterEventHotKey(keyCode, modifiers, {signature, id},",
         "RegisterEventHotKey(keyCode, modifiers, &named,"))),
    Mistake(
        "arguments 1 and 3 swapped", COMPILE,
        "no matching function for call to 'RegisterEventHotKey'", (
        (HOTKEYS, "RegisterEventHotKey(keyCode, modifiers, {signature, id},",
         "RegisterEventHotKey(EventHotKeyID{signature, id}, modifiers, keyCode,"),)),
    Mistake(
        "class method called on an instance", COMPILE,
        "declares the selector 'separatorItem'", (
        (SHELL, "[NSMenuItem separatorItem]", "[item separatorItem]"),)),

    # Mistakes in the declarations, repeated in the port if used there.
    Mistake("selector, in both", DECLARATIONS, "orderFrontAnyway]: no such method", (
        (APPKIT, "orderFrontRegardless", "orderFrontAnyway"),
        (KEEPER, "orderFrontRegardless", "orderFrontAnyway"))),
    Mistake("name of an enum's member, in both", DECLARATIONS, "has no such member", (
        (APPKIT, "NSWindowCollectionBehaviorFullScreenAuxiliary",
         "NSWindowCollectionBehaviorFullscreenAuxiliary"),
        (KEEPER, "NSWindowCollectionBehaviorFullScreenAuxiliary",
         "NSWindowCollectionBehaviorFullscreenAuxiliary"))),
    Mistake("prefix of an enum's member", DECLARATIONS, "NSEventMask has no such member", (
        (APPKIT, "NSEventMaskKeyDown", "NSEventMaKeyDown"),
        ("KeyMonitorMac.mm", "NSEventMaskKeyDown", "NSEventMaKeyDown"))),
    Mistake("value of an enum's member", DECLARATIONS, "is 128, description B has 256", (
        (APPKIT, "NSWindowCollectionBehaviorFullScreenAuxiliary = 1 << 8",
         "NSWindowCollectionBehaviorFullScreenAuxiliary = 1 << 7"),)),
    Mistake("value of a constant", DECLARATIONS, "is -9784, description B has -9874", (
        (CARBON, "eventNotHandledErr = -9874", "eventNotHandledErr = -9784"),)),
    Mistake("four-character code", DECLARATIONS, "typeEventHotKeyID: is ", (
        (CARBON, "'hkid'", "'hkey'"),)),
    Mistake("window level", DECLARATIONS, "is 5, description B has 3", (
        (APPKIT, "NSFloatingWindowLevel = 3", "NSFloatingWindowLevel = 5"),)),
    Mistake(
        "type of an argument", DECLARATIONS,
        "argument 1 is a signed integer of 64 bits, not boolean", (
        (APPKIT, "- (void)activateIgnoringOtherApps:(BOOL)",
         "- (void)activateIgnoringOtherApps:(NSInteger)"),)),
    Mistake(
        "extra parameter, in both", DECLARATIONS,
        "activateIgnoringOtherApps:options:]: no such method", (
        (APPKIT, "- (void)activateIgnoringOtherApps:(BOOL)",
         "- (void)activateIgnoringOtherApps:(BOOL)now options:(NSUInteger)"),
        (SHELL, "activateIgnoringOtherApps:YES", "activateIgnoringOtherApps:YES options:0"))),
    Mistake(
        "property on the wrong class", DECLARATIONS,
        "NSWindow.becomesKeyOnlyIfNeeded: no such property", (
        (APPKIT, "@property BOOL hidesOnDeactivate;",
         "@property BOOL hidesOnDeactivate;\n@property BOOL becomesKeyOnlyIfNeeded;"),)),
    Mistake(
        "class method as instance method, in both", DECLARATIONS,
        "-[NSMenuItem separatorItem]: ", (
        (APPKIT, "+ (NSMenuItem *)separatorItem;", "- (NSMenuItem *)separatorItem;"),
        (SHELL, "[NSMenuItem separatorItem]", "[item separatorItem]"))),
    Mistake(
        "swapped fields of a struct", DECLARATIONS,
        "has the fields signature, id, not id, signature", (
        (CARBON, "OSType signature;\n    UInt32 id;", "UInt32 id;\n    OSType signature;"),)),
    Mistake("name of a function, in both", DECLARATIONS, "UnregisterHotKey: no such function", (
        (CARBON, "UnregisterEventHotKey", "UnregisterHotKey"),
        (HOTKEYS, "UnregisterEventHotKey", "UnregisterHotKey"))),
    Mistake(
        "nonexistent constant, in both", DECLARATIONS,
        "NSApplicationDidComeForwardNotification: no such constant", (
        (APPKIT, "NSApplicationDidBecomeActiveNotification",
         "NSApplicationDidComeForwardNotification"),
        ("PermissionsMac.mm", "NSApplicationDidBecomeActiveNotification",
         "NSApplicationDidComeForwardNotification"))),
    Mistake(
        "width of a function's argument", DECLARATIONS,
        "description B has an unsigned integer of 32 bits", (
        (CARBON, "OSStatus RegisterEventHotKey(UInt32,",
         "OSStatus RegisterEventHotKey(unsigned long,"),)),
    Mistake(
        "width of a property", DECLARATIONS,
        "description B has an unsigned integer of 16 bits", (
        (APPKIT, "@property (readonly) unsigned short keyCode;",
         "@property (readonly) unsigned int keyCode;"),)),
    Mistake("superclass", DECLARATIONS, "not derived from NSResponder", (
        (APPKIT, "@interface NSMenuItem : NSObject", "@interface NSMenuItem : NSResponder"),)),
    Mistake(
        "protocol that a class does not adopt", DECLARATIONS,
        "does not adopt NSFastEnumeration", (
        (APPKIT, "@interface NSMenuItem : NSObject",
         "@interface NSMenuItem : NSObject <NSFastEnumeration>"),)),
    Mistake("result of a block", DECLARATIONS, "not (p1: NSEvent) => NSEvent", (
        (APPKIT, "handler:(NSEvent *_Nullable (^)(NSEvent *))", "handler:(BOOL (^)(NSEvent *))"),)),
    Mistake("read-only property declared writable", DECLARATIONS, "can only be read", (
        (APPKIT, "@property (getter=isKeyWindow, readonly) BOOL keyWindow;",
         "@property (getter=isKeyWindow) BOOL keyWindow;"),)),
    Mistake("getter of a property", DECLARATIONS, "reads it with isKeyWindow", (
        (APPKIT, "@property (getter=isKeyWindow, readonly) BOOL keyWindow;",
         "@property (readonly) BOOL keyWindow;"),)),
    Mistake(
        "string constant as a number", DECLARATIONS,
        "NSAppearanceNameAqua: is a signed integer", (
        (APPKIT, "SDK_EXTERN NSAppearanceName const NSAppearanceNameAqua;",
         "SDK_EXTERN NSInteger const NSAppearanceNameAqua;"),)),
    Mistake("constant as a macro", DECLARATIONS, "macro kFirstKey", (
        (CARBON, "SDK_EXTERN EventTargetRef GetApplicationEventTarget(void);",
         "SDK_EXTERN EventTargetRef GetApplicationEventTarget(void);\n#define kFirstKey 1"),)),

    # Mistakes found when linking.
    Mistake("missing member function of an interface", LINK, "PreferenceStoreMac11synchronize", (
        ("PreferenceStoreMac.mm",
         "bool PreferenceStoreMac::synchronize()\n{\n"
         "    return [NSUserDefaults.standardUserDefaults synchronize];\n}\n",
         ""),)),

    # Undetectable mistakes.
    Mistake("swapped arguments of the same type", NOWHERE, "", (
        (HOTKEYS, "RegisterEventHotKey(keyCode, modifiers,",
         "RegisterEventHotKey(modifiers, keyCode,"),)),
    Mistake("misspelled name in a string", NOWHERE, "", (
        ("AppearanceMac.mm", '@"effectiveAppearance"', '@"effectivAppearance"'),)),
    Mistake("misspelled selector of a callback method", NOWHERE, "", (
        ("AppearanceMac.mm", "ofObject:(id)__unused object", "onObject:(id)__unused object"),)),
)
