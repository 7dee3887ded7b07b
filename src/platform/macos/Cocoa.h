#pragma once

#include "platform/macos/Subscription.h"

#include <QPointF>
#include <QString>

#include <functional>

#import <AppKit/AppKit.h>

class QWindow;

/// Helpers for the Objective-C++ files of the port. Main thread only.
namespace quellora::Cocoa {

/// The window's view; nil without a native window, which this does not create.
NSView *view(const QWindow &window);
/// The native window; nil without one.
NSWindow *window(const QWindow &window);

NSString *string(const QString &text);
/// A null string for nil.
QString string(NSString *text);

/// The current position of the pointer in Qt's desktop coordinates, points.
QPointF pointerPosition();

/// Calls @p handler on the main thread for every notification of this name.
Subscription observe(NSNotificationCenter *center, NSNotificationName name,
                     std::function<void()> handler);
/// Calls @p handler with the program's own events before they are dispatched. The returned event is
/// dispatched instead; nil drops it. The handler may end the subscription.
Subscription monitorOwnEvents(NSEventMask mask, std::function<NSEvent *(NSEvent *)> handler);
/// Calls @p handler with copies of events for other programs. It may end the subscription.
Subscription monitorOthersEvents(NSEventMask mask, std::function<void(NSEvent *)> handler);

} // namespace quellora::Cocoa
