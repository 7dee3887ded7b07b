#include "platform/linux/PermissionsLinux.h"

namespace quellora {

PermissionsLinux::Session PermissionsLinux::currentSession()
{
    const bool wayland = qEnvironmentVariable("XDG_SESSION_TYPE") == QStringLiteral("wayland") ||
                         !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    return wayland ? Session::Wayland : Session::X11;
}

} // namespace quellora
