#pragma once

#include <QByteArray>
#include <QFuture>
#include <QRect>
#include <QString>

#include <tl/expected.hpp>

namespace quellora {

/// The window in front on sway, which alone among the compositors with wlr-screencopy tells where
/// it is, over its own socket.
namespace SwayWindow {

/// In points, on the desktop, without the title bar; or why it is not known, for the user in
/// sentences without the last full stop.
using Place = tl::expected<QRect, QString>;

/// The path of sway's socket; empty on other compositors.
QString socketPath();
/// Asks sway on a worker thread, for a second at most.
/// @param socketPath empty if there is none
QFuture<Place> find(const QString &socketPath);
/// The focused window in sway's tree of windows. While a panel has the keyboard, this is the window
/// that had it before. Thread-safe.
/// @param tree JSON as sway sends it
Place fromTree(const QByteArray &tree);

} // namespace SwayWindow
} // namespace quellora
