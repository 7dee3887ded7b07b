#include "platform/macos/NonactivatingPanelMac.h"

#include <QtGlobal>

#import <AppKit/AppKit.h>
#include <objc/runtime.h>

namespace quellora {
namespace {

// Untyped pointers: the objects are passed through without retain and release.
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
    // If NSPanel inherits the method from NSWindow, adds an override to NSPanel, so that other
    // windows keep the original.
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
