#include "platform/linux/ApplicationShellX11.h"

#include "platform/linux/WindowHintsX11.h"

#include <QEvent>
#include <QGuiApplication>
#include <QWindow>

namespace quellora {

Capability ApplicationShellX11::becomeAccessory()
{
    if (!std::exchange(m_accessory, true))
        qGuiApp->installEventFilter(this);
    return Capability::bestEffort(
        QStringLiteral("X11 has no accessory applications: each window leaves the task bar and "
                       "the pager by itself"));
}

Capability ApplicationShellX11::activate(QWindow &window)
{
    window.show();
    window.raise();
    window.requestActivate();
    return Capability::bestEffort(QStringLiteral("The window manager decides about the focus"));
}

bool ApplicationShellX11::eventFilter(QObject *watched, QEvent *event)
{
    // Sent before the native window is mapped, when the states still are a property.
    if (event->type() == QEvent::Show) {
        if (const auto *window = qobject_cast<QWindow *>(watched); window && window->isTopLevel())
            addWindowStates(m_x11, *window,
                            {"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"});
    }
    return QObject::eventFilter(watched, event);
}

} // namespace quellora
