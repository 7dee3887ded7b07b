#pragma once
#import <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>
#pragma clang assume_nonnull begin
@class NSWindow, NSMenu, NSMenuItem, NSEvent, NSAppearance, NSImage, NSScreen;
SDK_ENUM(NSInteger, NSApplicationActivationPolicy){NSApplicationActivationPolicyRegular,
                                                   NSApplicationActivationPolicyAccessory,
                                                   NSApplicationActivationPolicyProhibited};
SDK_ENUM(NSUInteger, NSWindowSharingType){NSWindowSharingNone = 0, NSWindowSharingReadOnly = 1};
SDK_OPTIONS(NSUInteger, NSWindowCollectionBehavior){
    NSWindowCollectionBehaviorDefault = 0, NSWindowCollectionBehaviorCanJoinAllSpaces = 1 << 0,
    NSWindowCollectionBehaviorStationary = 1 << 4,
    NSWindowCollectionBehaviorFullScreenAuxiliary = 1 << 8};
SDK_OPTIONS(NSUInteger, NSWindowStyleMask){NSWindowStyleMaskBorderless = 0,
                                           NSWindowStyleMaskTitled = 1 << 0,
                                           NSWindowStyleMaskNonactivatingPanel = 1 << 7};
SDK_OPTIONS(uint64_t, NSEventMask){NSEventMaskMouseMoved = 1ULL << 5,
                                   NSEventMaskKeyDown = 1ULL << 10};
SDK_OPTIONS(NSUInteger, NSEventModifierFlags){
    NSEventModifierFlagShift = 1 << 17, NSEventModifierFlagControl = 1 << 18,
    NSEventModifierFlagOption = 1 << 19, NSEventModifierFlagCommand = 1 << 20};
typedef NSInteger NSWindowLevel;
static const NSWindowLevel NSFloatingWindowLevel = 3;
SDK_ENUM(NSUInteger, NSBitmapImageFileType){NSBitmapImageFileTypePNG = 4};
typedef NSString *NSAppearanceName;
SDK_EXTERN NSAppearanceName const NSAppearanceNameAqua;
SDK_EXTERN NSAppearanceName const NSAppearanceNameDarkAqua;
SDK_EXTERN NSNotificationName const NSApplicationDidBecomeActiveNotification;
@interface NSAppearance : NSObject
- (nullable NSAppearanceName)bestMatchFromAppearancesWithNames:(NSArray<NSAppearanceName> *)a;
@end
@interface NSResponder : NSObject
@end
@interface NSApplication : NSResponder
@property (class, readonly, strong) __kindof NSApplication *sharedApplication;
@property (nullable, strong) NSMenu *mainMenu;
@property (readonly, strong) NSAppearance *effectiveAppearance;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)p;
@end
SDK_EXTERN __kindof NSApplication *_Null_unspecified NSApp;
@interface NSView : NSResponder
@property (nullable, readonly, assign) NSWindow *window;
@end
@interface NSWindow : NSResponder
@property NSWindowStyleMask styleMask;
@property NSWindowLevel level;
@property NSWindowCollectionBehavior collectionBehavior;
@property NSWindowSharingType sharingType;
@property BOOL hidesOnDeactivate;
@property BOOL ignoresMouseEvents;
@end
@interface NSPanel : NSWindow
@property BOOL becomesKeyOnlyIfNeeded;
@end
@interface NSMenu : NSObject
- (instancetype)initWithTitle:(NSString *)t;
- (void)addItem:(NSMenuItem *)i;
- (NSMenuItem *)addItemWithTitle:(NSString *)t action:(nullable SEL)a keyEquivalent:(NSString *)k;
@end
@interface NSMenuItem : NSObject
+ (NSMenuItem *)separatorItem;
- (instancetype)initWithTitle:(NSString *)t action:(nullable SEL)a keyEquivalent:(NSString *)k;
@property (nullable, strong) NSMenu *submenu;
@property NSEventModifierFlags keyEquivalentModifierMask;
@end
// the responder actions that the Edit menu sends; declared so -Wundeclared-selector can check
// @selector()
@interface NSText : NSView
- (void)cut:(nullable id)s;
- (void)copy:(nullable id)s;
- (void)paste:(nullable id)s;
- (void)selectAll:(nullable id)s;
@end
@interface NSResponder (SdkEditActions)
- (void)undo:(nullable id)s;
- (void)redo:(nullable id)s;
@end
@interface NSEvent : NSObject
@property (readonly) unsigned short keyCode;
@property (class, readonly) NSPoint mouseLocation;
+ (nullable id)addGlobalMonitorForEventsMatchingMask:(NSEventMask)m handler:(void (^)(NSEvent *))b;
+ (nullable id)addLocalMonitorForEventsMatchingMask:(NSEventMask)m
                                            handler:(NSEvent *_Nullable (^)(NSEvent *))b;
+ (void)removeMonitor:(id)m;
@end
@interface NSWorkspace : NSObject
@property (class, readonly, strong) NSWorkspace *sharedWorkspace;
- (BOOL)openURL:(NSURL *)u;
@end
@interface NSImageSymbolConfiguration : NSObject
+ (instancetype)configurationWithPointSize:(CGFloat)p weight:(CGFloat)w;
@end
@interface NSImage : NSObject
+ (nullable instancetype)imageWithSystemSymbolName:(NSString *)n
                          accessibilityDescription:(nullable NSString *)d;
- (nullable NSImage *)imageWithSymbolConfiguration:(NSImageSymbolConfiguration *)c;
@property (nullable, readonly, copy) NSData *TIFFRepresentation;
@end
@interface NSBitmapImageRep : NSObject
+ (nullable instancetype)imageRepWithData:(NSData *)d;
- (nullable NSData *)representationUsingType:(NSBitmapImageFileType)t
                                  properties:(NSDictionary<NSString *, id> *)p;
@end
#pragma clang assume_nonnull end
