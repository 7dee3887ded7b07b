#pragma once

namespace quellora {

/// What a capture shows.
enum class CaptureTarget {
    /// The screen with the pointer, or all screens, as the settings say.
    Screen,
    /// The window in front that is not this program's.
    FrontWindow,
    /// A part of a screen that the user chooses.
    Region,
    /// The part that was chosen last; if there is none on these screens, the user chooses one.
    LastRegion,
};

} // namespace quellora
