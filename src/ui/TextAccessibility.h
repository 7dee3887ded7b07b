#pragma once

namespace quellora {

/// Gives assistive programs a proper view of every text field and text area: name, value, caret,
/// selection, and editing. A field with a hidden echo mode shows bullets only, never what was
/// typed, and keeps its name. Call once, before the first window; main thread.
void installTextAccessibility();

} // namespace quellora
