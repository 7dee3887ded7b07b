#pragma once

namespace quellora {

/// Makes the bundled faces known to the font database under the families "Inter" (400, 500, 600)
/// and "JetBrains Mono" (400). Needs the application object; main thread. A face that does not load
/// leaves the system's fallback in place. Returns whether all of them loaded.
bool loadBundledFonts();

} // namespace quellora
