#pragma once

namespace quellora {

/// Installs accessibility interfaces for text fields, buttons and lists, replacing the incomplete
/// ones of Qt Quick.
///
/// Text fields and areas expose name, value, caret, selection and editing; a field with a hidden
/// echo mode exposes bullets instead of its text. Buttons and switches expose a working press or
/// toggle action and the disabled state. Call once before the first window is created. Main thread.
void installControlAccessibility();

} // namespace quellora
