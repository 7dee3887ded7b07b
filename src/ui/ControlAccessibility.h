#pragma once

namespace quellora {

/// Gives assistive programs a proper view of text fields and buttons.
///
/// Text fields and areas: name, value, caret, selection and editing; a field with a hidden echo
/// mode shows bullets only, never what was typed, and keeps its name. Buttons and switches: one
/// action that really acts, and whether they are disabled. Call once, before the first window; main
/// thread.
void installControlAccessibility();

} // namespace quellora
