#pragma once

#include "platform/macos/Subscription.h"

#include <QPointF>
#include <QString>

#include <functional>

#import <AppKit/AppKit.h>

class QWindow;

/// What the port's Objective-C++ files share. Main thread only.
namespace quellora::Cocoa {

/// The window's view; nil without a native window. Never makes one.
NSView *view(const QWindow &window);
/// The native window; nil without one.
NSWindow *window(const QWindow &window);

NSString *string(const QString &text);
/// A null string for nil.
QString string(NSString *text);

/// Where the pointer is now, in the toolkit's desktop coordinates, points.
QPointF pointerPosition();

/// Calls @p handler on the main thread at every notification of this name.
Subscription observe(NSNotificationCenter *center, NSNotificationName name,
                     std::function<void()> handler);
/// Shows @p handler the program's own events before anything else sees them; the one it returns
/// goes on, nil goes nowhere. It may end the subscription.
Subscription monitorOwnEvents(NSEventMask mask, std::function<NSEvent *(NSEvent *)> handler);
/// Shows @p handler copies of the events that go to other programs. It may end the subscription.
Subscription monitorOthersEvents(NSEventMask mask, std::function<void(NSEvent *)> handler);

} // namespace quellora::Cocoa
