#pragma once

#include "platform/linux/X11Connection.h"

#include <QByteArray>
#include <QList>

class QWindow;

namespace quellora {

/// The native window; XCB_NONE if there is none. Does not create it.
xcb_window_t nativeWindow(const QWindow &window);

/// Adds window states such as "_NET_WM_STATE_ABOVE": asks the window manager if it already manages
/// the window, otherwise writes them to the window's property.
void addWindowStates(const X11Connection &x11, const QWindow &window,
                     const QList<QByteArray> &states);

/// Whether the window's property contains all of the states.
bool hasWindowStates(const X11Connection &x11, const QWindow &window,
                     const QList<QByteArray> &states);

/// Shows the window on every desktop.
void showOnAllDesktops(const X11Connection &x11, const QWindow &window);

/// Requests activation from the window manager as a pager does (source indication 2), so that focus
/// stealing prevention does not apply. No effect if the window is not mapped or not managed.
void requestActivation(const X11Connection &x11, const QWindow &window);

/// Replaces an 8-bit text property.
void setText(const X11Connection &x11, xcb_window_t window, const QByteArray &property,
             xcb_atom_t type, const QByteArray &text);

/// Replaces a property with one CARDINAL.
void setCardinal(const X11Connection &x11, xcb_window_t window, const QByteArray &property,
                 quint32 value);

} // namespace quellora
