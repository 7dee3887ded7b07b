#include "platform/macos/NonactivatingPanelMac.h"

#include <QtGlobal>

#import <AppKit/AppKit.h>
#include <objc/runtime.h>

namespace quellora {
namespace {

// Passed through as they come: nothing here owns the objects, so nothing counts them.
using InitPanel = void *(*)(void *self, SEL selector, NSRect contentRect, NSWindowStyleMask style,
                            NSBackingStoreType backing, BOOL defer, void *screen);

InitPanel originalInit = nullptr;

void *initNonactivating(void *self, SEL selector, NSRect contentRect, NSWindowStyleMask style,
                        NSBackingStoreType backing, BOOL defer, void *screen)
{
    return originalInit(self, selector, contentRect, style | NSWindowStyleMaskNonactivatingPanel,
                        backing, defer, screen);
}

SEL initSelector()
{
    return @selector(initWithContentRect:styleMask:backing:defer:screen:);
}

} // namespace

NonactivatingPanelMac::NonactivatingPanelMac()
{
    Q_ASSERT(!originalInit);
    const Class panels = NSPanel.class;
    const Method method = class_getInstanceMethod(panels, initSelector());
    originalInit = reinterpret_cast<InitPanel>(method_getImplementation(method));
    const auto replacement = reinterpret_cast<IMP>(&initNonactivating);
    // Panels that inherit it from windows get a method of their own: windows are left alone.
    if (!class_addMethod(panels, initSelector(), replacement, method_getTypeEncoding(method)))
        method_setImplementation(method, replacement);
}

NonactivatingPanelMac::~NonactivatingPanelMac()
{
    method_setImplementation(class_getInstanceMethod(NSPanel.class, initSelector()),
                             reinterpret_cast<IMP>(originalInit));
    originalInit = nullptr;
}

} // namespace quellora
