#include "platform/macos/Cocoa.h"

#include "platform/macos/ClickThrough.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

#include <utility>

namespace quellora::Cocoa {

NSView *view(const QWindow &window)
{
    if (!window.handle())
        return nil;
    return (__bridge NSView *)reinterpret_cast<void *>(window.winId());
}

NSWindow *window(const QWindow &window)
{
    return view(window).window;
}

NSString *string(const QString &text)
{
    return [NSString stringWithCharacters:reinterpret_cast<const unichar *>(text.utf16())
                                   length:NSUInteger(text.size())];
}

QString string(NSString *text)
{
    return QString::fromUtf8(text.UTF8String);
}

QPointF pointerPosition()
{
    const NSPoint position = NSEvent.mouseLocation;
    const QScreen *primary = QGuiApplication::primaryScreen();
    return fromDesktop(position.x, position.y, primary ? primary->geometry().height() : 0);
}

Subscription observe(NSNotificationCenter *center, NSNotificationName name,
                     std::function<void()> handler)
{
    const id<NSObject> token = [center addObserverForName:name
                                                   object:nil
                                                    queue:NSOperationQueue.mainQueue
                                               usingBlock:^(NSNotification *) {
                                                   // A copy: it may end the subscription.
                                                   const auto call = handler;
                                                   call();
                                               }];
    return Subscription([center, token] { [center removeObserver:token]; });
}

Subscription monitorOwnEvents(NSEventMask mask, std::function<NSEvent *(NSEvent *)> handler)
{
    const id monitor = [NSEvent addLocalMonitorForEventsMatchingMask:mask
                                                             handler:^NSEvent *(NSEvent *event) {
                                                                 const auto call = handler;
                                                                 return call(event);
                                                             }];
    if (!monitor)
        return Subscription();
    return Subscription([monitor] { [NSEvent removeMonitor:monitor]; });
}

Subscription monitorOthersEvents(NSEventMask mask, std::function<void(NSEvent *)> handler)
{
    const id monitor = [NSEvent addGlobalMonitorForEventsMatchingMask:mask
                                                              handler:^(NSEvent *event) {
                                                                  const auto call = handler;
                                                                  call(event);
                                                              }];
    if (!monitor)
        return Subscription();
    return Subscription([monitor] { [NSEvent removeMonitor:monitor]; });
}

} // namespace quellora::Cocoa
