#pragma once

namespace quellora {

/// Dynamic property of a panel's window, true while a platform hides it only to show it at once on
/// another screen.
constexpr auto movesToScreenProperty = "_quellora_movesToScreen";
/// Dynamic property of a panel's window: the text that a screen reader is to say, politely. For a
/// port whose toolkit does not announce what appears in the window. Cleared before each text, so
/// that the same one counts twice.
constexpr auto announcementProperty = "_quellora_announcement";

} // namespace quellora
