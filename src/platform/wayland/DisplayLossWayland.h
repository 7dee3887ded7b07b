#pragma once

namespace quellora {

/// Calls @p handler instead of the toolkit's _exit() when the connection to the compositor is lost.
/// It runs on the thread that uses the connection and must not return.
void setDisplayLossHandlerWayland(void (*handler)());

} // namespace quellora
