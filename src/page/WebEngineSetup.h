#pragma once

namespace quellora {

/// Prepares the page engine: own address schemes, switches that keep it off the network, no sandbox
/// when running as root (said in one log line). Call once in main, before the application object.
void prepareWebEngine();

} // namespace quellora
