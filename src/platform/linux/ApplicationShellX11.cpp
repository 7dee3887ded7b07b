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
    if (event->type() != QEvent::Show && event->type() != QEvent::Expose)
        return QObject::eventFilter(watched, event);
    auto *window = qobject_cast<QWindow *>(watched);
    if (!window || !window->isTopLevel())
        return QObject::eventFilter(watched, event);
    // Before the native window is mapped the states are a property. A window manager that is still
    // busy with hiding the window drops it, so it is asked once more when the window has appeared.
    if (event->type() == QEvent::Show)
        m_appearing.insert(window);
    else if (!window->isExposed() || !m_appearing.remove(window))
        return QObject::eventFilter(watched, event);
    addWindowStates(m_x11, *window, {"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"});
    return QObject::eventFilter(watched, event);
}

} // namespace quellora
