#pragma once

namespace quellora {

/// Keeps the QML module Quellora.Panels in a program that links its static library. Call before the
/// module is imported.
void usePanelsModule();

} // namespace quellora
