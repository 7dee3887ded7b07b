#include "platform/wayland/ApplicationShellWayland.h"

#include <QWindow>

namespace quellora {

Capability ApplicationShellWayland::becomeAccessory()
{
    return Capability::bestEffort(
        QStringLiteral("The panel is in no task bar, but Wayland lets no program take its other "
                       "windows out"));
}

Capability ApplicationShellWayland::makeOrdinary(QWindow &)
{
    return Capability::bestEffort(
        QStringLiteral("The desktop decides about the title bar's colour"));
}

Capability ApplicationShellWayland::activate(QWindow &window)
{
    window.show();
    window.raise();
    window.requestActivate();
    return Capability::bestEffort(QStringLiteral("The compositor decides about the focus"));
}

} // namespace quellora
