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
    const bool isShown = event->type() == QEvent::Show;
    if (!isShown && event->type() != QEvent::Expose)
        return QObject::eventFilter(watched, event);
    const auto *window = qobject_cast<QWindow *>(watched);
    if (!window || !window->isTopLevel())
        return QObject::eventFilter(watched, event);
    // Before the native window is mapped the states are a property. A window manager that is still
    // busy with hiding the window drops it, so whoever has the window on the screen is asked again.
    const QList<QByteArray> states{"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"};
    if (isShown || (window->isExposed() && !hasWindowStates(m_x11, *window, states)))
        addWindowStates(m_x11, *window, states);
    return QObject::eventFilter(watched, event);
}

} // namespace quellora
