#pragma once
#import <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>
#include <sys/types.h>
#pragma clang assume_nonnull begin
@class NSWindow, NSMenu, NSMenuItem, NSEvent, NSAppearance, NSImage, NSScreen, NSRunningApplication;
SDK_ENUM(NSInteger, NSApplicationActivationPolicy){NSApplicationActivationPolicyRegular,
                                                   NSApplicationActivationPolicyAccessory,
                                                   NSApplicationActivationPolicyProhibited};
SDK_OPTIONS(NSUInteger, NSApplicationActivationOptions){};
SDK_ENUM(NSUInteger, NSWindowSharingType){NSWindowSharingNone = 0, NSWindowSharingReadOnly = 1};
SDK_ENUM(NSInteger, NSWindowAnimationBehavior){NSWindowAnimationBehaviorDefault = 0,
                                               NSWindowAnimationBehaviorNone = 2};
SDK_ENUM(NSUInteger, NSBackingStoreType){NSBackingStoreBuffered = 2};
SDK_OPTIONS(NSUInteger, NSWindowCollectionBehavior){
    NSWindowCollectionBehaviorDefault = 0, NSWindowCollectionBehaviorCanJoinAllSpaces = 1 << 0,
    NSWindowCollectionBehaviorFullScreenAuxiliary = 1 << 8};
SDK_OPTIONS(NSUInteger, NSWindowStyleMask){NSWindowStyleMaskBorderless = 0,
                                           NSWindowStyleMaskNonactivatingPanel = 1 << 7};
SDK_ENUM(NSUInteger, NSEventType){NSEventTypeMouseMoved = 5, NSEventTypeMouseEntered = 8,
                                  NSEventTypeMouseExited = 9};
SDK_OPTIONS(uint64_t,
            NSEventMask){NSEventMaskLeftMouseUp = 1ULL << 2,  NSEventMaskRightMouseUp = 1ULL << 4,
                         NSEventMaskMouseMoved = 1ULL << 5,   NSEventMaskMouseEntered = 1ULL << 8,
                         NSEventMaskMouseExited = 1ULL << 9,  NSEventMaskKeyDown = 1ULL << 10,
                         NSEventMaskOtherMouseUp = 1ULL << 26};
SDK_OPTIONS(NSUInteger, NSEventModifierFlags){
    NSEventModifierFlagShift = 1 << 17, NSEventModifierFlagControl = 1 << 18,
    NSEventModifierFlagOption = 1 << 19, NSEventModifierFlagCommand = 1 << 20};
typedef NSInteger NSWindowLevel;
static const NSWindowLevel NSFloatingWindowLevel = 3;
SDK_ENUM(NSUInteger, NSBitmapImageFileType){NSBitmapImageFileTypePNG = 4};
typedef NSString *NSBitmapImageRepPropertyKey;
typedef NSString *NSColorSpaceName;
typedef NSString *NSAppearanceName;
typedef CGFloat NSFontWeight;
typedef NSString *NSAccessibilityNotificationName;
typedef NSString *NSAccessibilityNotificationUserInfoKey;
SDK_ENUM(NSInteger, NSAccessibilityPriorityLevel){NSAccessibilityPriorityMedium = 50};
SDK_EXTERN NSAccessibilityNotificationName const NSAccessibilityAnnouncementRequestedNotification;
SDK_EXTERN NSAccessibilityNotificationUserInfoKey const NSAccessibilityAnnouncementKey;
SDK_EXTERN NSAccessibilityNotificationUserInfoKey const NSAccessibilityPriorityKey;
SDK_EXTERN void NSAccessibilityPostNotificationWithUserInfo(
    id element, NSAccessibilityNotificationName notification,
    NSDictionary<NSAccessibilityNotificationUserInfoKey, id> *_Nullable userInfo);
SDK_EXTERN NSAppearanceName const NSAppearanceNameAqua;
SDK_EXTERN NSAppearanceName const NSAppearanceNameDarkAqua;
SDK_EXTERN NSColorSpaceName const NSDeviceRGBColorSpace;
SDK_EXTERN NSFontWeight const NSFontWeightRegular;
SDK_EXTERN NSNotificationName const NSApplicationDidBecomeActiveNotification;
SDK_EXTERN NSNotificationName const NSApplicationDidResignActiveNotification;
SDK_EXTERN NSNotificationName const NSWorkspaceDidActivateApplicationNotification;
SDK_EXTERN NSNotificationName const NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification;
@interface NSAppearance : NSObject
+ (nullable NSAppearance *)appearanceNamed:(NSAppearanceName)name;
- (nullable NSAppearanceName)bestMatchFromAppearancesWithNames:(NSArray<NSAppearanceName> *)a;
@end
@interface NSResponder : NSObject
@end
@interface NSApplication : NSResponder
@property (nullable, strong) NSMenu *mainMenu;
@property (nullable, readonly, weak) NSWindow *keyWindow;
@property (getter=isActive, readonly) BOOL active;
@property (nullable, strong) NSAppearance *appearance;
@property (readonly, strong) NSAppearance *effectiveAppearance;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)p;
- (void)activateIgnoringOtherApps:(BOOL)ignoreOtherApps;
- (BOOL)sendAction:(SEL)action to:(nullable id)target from:(nullable id)sender;
@end
SDK_EXTERN __kindof NSApplication *_Null_unspecified NSApp;
@interface NSRunningApplication : NSObject
@property (readonly) pid_t processIdentifier;
+ (nullable instancetype)runningApplicationWithProcessIdentifier:(pid_t)pid;
- (BOOL)activateWithOptions:(NSApplicationActivationOptions)options;
@end
@interface NSView : NSResponder
@property (nullable, readonly, unsafe_unretained) NSWindow *window;
@end
@interface NSWindow : NSResponder
- (instancetype)initWithContentRect:(NSRect)contentRect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backingStoreType
                              defer:(BOOL)flag
                             screen:(nullable NSScreen *)screen;
@property NSWindowStyleMask styleMask;
@property NSWindowLevel level;
@property NSWindowCollectionBehavior collectionBehavior;
@property NSWindowSharingType sharingType;
@property NSWindowAnimationBehavior animationBehavior;
@property BOOL hidesOnDeactivate;
@property BOOL ignoresMouseEvents;
@property BOOL hasShadow;
@property (readonly) NSInteger windowNumber;
@property (getter=isVisible, readonly) BOOL visible;
@property (getter=isKeyWindow, readonly) BOOL keyWindow;
@property (nullable, strong) NSAppearance *appearance;
- (void)makeKeyAndOrderFront:(nullable id)sender;
- (void)orderFrontRegardless;
- (void)orderOut:(nullable id)sender;
@end
@interface NSPanel : NSWindow
@property BOOL becomesKeyOnlyIfNeeded;
@end
@interface NSMenu : NSObject
- (instancetype)initWithTitle:(NSString *)t;
@property BOOL autoenablesItems;
- (void)addItem:(NSMenuItem *)i;
- (NSMenuItem *)addItemWithTitle:(NSString *)t action:(nullable SEL)a keyEquivalent:(NSString *)k;
@end
@interface NSMenuItem : NSObject
+ (NSMenuItem *)separatorItem;
- (instancetype)initWithTitle:(NSString *)t action:(nullable SEL)a keyEquivalent:(NSString *)k;
@property (nullable, strong) NSMenu *submenu;
@property NSEventModifierFlags keyEquivalentModifierMask;
@property (nullable, weak) id target;
@property NSInteger tag;
@end
@interface NSEvent : NSObject
@property (readonly) NSEventType type;
@property (readonly) NSEventModifierFlags modifierFlags;
@property (nullable, readonly, weak) NSWindow *window;
@property (readonly) unsigned short keyCode;
@property (class, readonly) NSPoint mouseLocation;
@property (class, readonly) NSUInteger pressedMouseButtons;
- (nullable NSString *)charactersByApplyingModifiers:(NSEventModifierFlags)modifiers;
+ (nullable id)addGlobalMonitorForEventsMatchingMask:(NSEventMask)m handler:(void (^)(NSEvent *))b;
+ (nullable id)addLocalMonitorForEventsMatchingMask:(NSEventMask)m
                                            handler:(NSEvent *_Nullable (^)(NSEvent *))b;
+ (void)removeMonitor:(id)m;
@end
@interface NSWorkspaceOpenConfiguration : NSObject
+ (instancetype)configuration;
@end
@interface NSWorkspace : NSObject
@property (class, readonly, strong) NSWorkspace *sharedWorkspace;
@property (readonly, strong) NSNotificationCenter *notificationCenter;
@property (nullable, readonly, strong) NSRunningApplication *frontmostApplication;
@property (readonly) BOOL accessibilityDisplayShouldReduceMotion;
- (void)openURL:(NSURL *)url
        configuration:(NSWorkspaceOpenConfiguration *)configuration
    completionHandler:(nullable void (^)(NSRunningApplication *_Nullable application,
                                         NSError *_Nullable error))completionHandler;
@end
@interface NSImageSymbolConfiguration : NSObject
+ (instancetype)configurationWithPointSize:(CGFloat)p weight:(NSFontWeight)w;
@end
@interface NSImage : NSObject
@property NSSize size;
+ (nullable instancetype)imageWithSystemSymbolName:(NSString *)n
                          accessibilityDescription:(nullable NSString *)d;
- (nullable NSImage *)imageWithSymbolConfiguration:(NSImageSymbolConfiguration *)c;
- (void)drawInRect:(NSRect)rect;
@end
@interface NSImageRep : NSObject
@property NSSize size;
@property NSInteger pixelsWide;
@property NSInteger pixelsHigh;
@end
@interface NSBitmapImageRep : NSImageRep
- (nullable instancetype)initWithBitmapDataPlanes:(unsigned char *_Nullable *_Nullable)planes
                                       pixelsWide:(NSInteger)width
                                       pixelsHigh:(NSInteger)height
                                    bitsPerSample:(NSInteger)bps
                                  samplesPerPixel:(NSInteger)spp
                                         hasAlpha:(BOOL)alpha
                                         isPlanar:(BOOL)isPlanar
                                   colorSpaceName:(NSColorSpaceName)colorSpaceName
                                      bytesPerRow:(NSInteger)rBytes
                                     bitsPerPixel:(NSInteger)pBits;
- (nullable NSData *)representationUsingType:(NSBitmapImageFileType)t
                                  properties:(NSDictionary<NSBitmapImageRepPropertyKey, id> *)p;
@end
@interface NSGraphicsContext : NSObject
+ (nullable NSGraphicsContext *)graphicsContextWithBitmapImageRep:(NSBitmapImageRep *)rep;
@property (class, nullable, strong) NSGraphicsContext *currentContext;
+ (void)saveGraphicsState;
+ (void)restoreGraphicsState;
@end
#pragma clang assume_nonnull end
