#include "platform/macos/AppearanceMac.h"

#include "platform/macos/Cocoa.h"

namespace {

NSString *const appearanceKey = @"effectiveAppearance";

} // namespace

/// Observes the program's effective appearance: the system-wide notification of a new theme arrives
/// before the program has adopted it.
@interface QuelloraAppearanceObserver : NSObject
- (instancetype)initWithHandler:(void (^)(void))handler;
@end

@implementation QuelloraAppearanceObserver {
    void (^m_handler)(void);
}
- (instancetype)initWithHandler:(void (^)(void))handler
{
    self = [super init];
    if (self)
        m_handler = [handler copy];
    return self;
}

- (void)observeValueForKeyPath:(NSString *)__unused keyPath
                      ofObject:(id)__unused object
                        change:(NSDictionary<NSKeyValueChangeKey, id> *)__unused change
                       context:(void *)__unused context
{
    m_handler();
}
@end

namespace quellora {
namespace {

bool isDarkNow()
{
    NSAppearanceName name = [NSApp.effectiveAppearance
        bestMatchFromAppearancesWithNames:@[ NSAppearanceNameAqua, NSAppearanceNameDarkAqua ]];
    return [name isEqualToString:NSAppearanceNameDarkAqua];
}

bool reducesMotionNow()
{
    return NSWorkspace.sharedWorkspace.accessibilityDisplayShouldReduceMotion;
}

Subscription observeAppearance(std::function<void()> handler)
{
    QuelloraAppearanceObserver *observer = [[QuelloraAppearanceObserver alloc] initWithHandler:^{
        handler();
    }];
    [NSApp addObserver:observer
            forKeyPath:appearanceKey
               options:NSKeyValueObservingOptions(0)
               context:nullptr];
    return Subscription([observer] { [NSApp removeObserver:observer forKeyPath:appearanceKey]; });
}

} // namespace

AppearanceMac::AppearanceMac() : m_dark(isDarkNow()), m_reducesMotion(reducesMotionNow())
{
    m_appearanceChanged = observeAppearance([this] {
        if (m_dark.update(isDarkNow()) && m_handler)
            m_handler();
    });
    m_motionChanged =
        Cocoa::observe(NSWorkspace.sharedWorkspace.notificationCenter,
                       NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification, [this] {
                           if (m_reducesMotion.update(reducesMotionNow()) && m_motionHandler)
                               m_motionHandler();
                       });
}

} // namespace quellora
