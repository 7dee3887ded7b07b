#pragma once

namespace quellora {

/// Prepares the page engine: registers our address schemes, sets switches that keep it off the
/// network, and disables its sandbox (with a log line) when running as root. Call once in main,
/// before the application object is created.
void prepareWebEngine();

} // namespace quellora
