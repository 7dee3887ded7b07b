#pragma once

namespace quellora {

/// Dynamic property of a panel's window, true while a platform hides it only to show it at once on
/// another screen.
constexpr auto movesToScreenProperty = "_quellora_movesToScreen";

} // namespace quellora
