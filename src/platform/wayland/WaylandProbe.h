#pragma once

#include <QString>

#include <chrono>

namespace quellora {

/// What the compositor of this session offers, found without the application object.
enum class WaylandProbe {
    /// There is none, or it does not answer.
    NoCompositor,
    /// It has no layer above the windows for other programs.
    NoLayerShell,
    LayerShell,
};

/// Asks the compositor that WAYLAND_DISPLAY names through a connection of its own. Blocks until it
/// answers, or for @p timeout.
WaylandProbe probeWayland(std::chrono::milliseconds timeout);

/// The socket that WAYLAND_DISPLAY names, relative to the user's runtime folder if it is in there;
/// empty if no compositor listens on it. Does not block.
QString waylandSession();

} // namespace quellora
