#pragma once

namespace quellora {

/// Keeps the QML module Quellora.Settings in a program that links its static library. Call before
/// the module is imported.
void useSettingsModule();

} // namespace quellora
