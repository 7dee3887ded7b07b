#pragma once

#include "platform/linux/KeyLayoutX11.h"
#include "platform/wayland/WaylandConnection.h"

#include <QByteArray>
#include <QHash>

namespace quellora {

/// The names of physical keys in the layout of the session's keyboard. Main thread only.
namespace KeyNamesWayland {

/// The character by which a physical key is registered in the current layout; empty for keys that
/// cannot be bound. Asks the compositor: one round trip.
QString keyName(const WaylandConnection &connection, quint32 nativeScanCode);

/// The keys of a keymap in the text format that compositors send; none if it is malformed.
QHash<xcb_keycode_t, KeyLayoutX11::Symbols> keys(const QByteArray &keymap);

} // namespace KeyNamesWayland

} // namespace quellora
