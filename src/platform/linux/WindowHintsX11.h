#pragma once

#include "platform/linux/X11Connection.h"

#include <QByteArray>
#include <QList>

class QWindow;

namespace quellora {

/// The native window; XCB_NONE while it does not exist. Never creates it.
xcb_window_t nativeWindow(const QWindow &window);

/// Adds window-manager states such as "_NET_WM_STATE_ABOVE". They are written to the
/// window's property, unless a window manager has the window by now: then it is asked.
void addWindowStates(const X11Connection &x11, const QWindow &window,
                     const QList<QByteArray> &states);

/// Whether the window's property names all of the states.
bool hasWindowStates(const X11Connection &x11, const QWindow &window,
                     const QList<QByteArray> &states);

/// Puts the window on every desktop.
void showOnAllDesktops(const X11Connection &x11, const QWindow &window);

/// Asks the window manager for the focus in the user's name, as a task bar does, whatever the user
/// has pressed elsewhere since. Without effect on a window that is not on the screen.
void askForActivation(const X11Connection &x11, const QWindow &window);

/// Writes a text.
void setText(const X11Connection &x11, xcb_window_t window, const QByteArray &property,
             xcb_atom_t type, const QByteArray &text);

/// Writes one CARDINAL.
void setCardinal(const X11Connection &x11, xcb_window_t window, const QByteArray &property,
                 quint32 value);

} // namespace quellora
