#include "platform/linux/ApplicationShellX11.h"

#include "platform/linux/WindowHintsX11.h"

#include <QEvent>
#include <QGuiApplication>
#include <QStandardPaths>

#include <utility>

namespace quellora {

Capability ApplicationShellX11::becomeAccessory()
{
    if (!std::exchange(m_accessory, true))
        qGuiApp->installEventFilter(this);
    return Capability::bestEffort(
        QStringLiteral("X11 has no accessory applications: each window leaves the task bar and "
                       "the pager by itself"));
}

Capability ApplicationShellX11::makeOrdinary(QWindow &window)
{
    m_ordinary.removeIf([](const QPointer<QWindow> &other) { return other.isNull(); });
    m_ordinary.append(&window);
    window.create();
    const xcb_window_t native = nativeWindow(window);
    // Read when the window is mapped: the first by window managers with GTK decorations, the second
    // by KWin, which expects the path of a scheme file.
    setText(m_x11, native, "_GTK_THEME_VARIANT", m_x11.atom("UTF8_STRING"), "dark");
    const QString scheme = QStandardPaths::locate(
        QStandardPaths::GenericDataLocation, QStringLiteral("color-schemes/BreezeDark.colors"));
    if (!scheme.isEmpty())
        setText(m_x11, native, "_KDE_NET_WM_COLOR_SCHEME", XCB_ATOM_STRING, scheme.toLocal8Bit());
    return Capability::bestEffort(
        QStringLiteral("The window manager decides about the title bar's colour"));
}

Capability ApplicationShellX11::activate(QWindow &window)
{
    window.show();
    window.raise();
    window.requestActivate();
    requestActivation(m_x11, window);
    return Capability::bestEffort(QStringLiteral("The window manager decides about the focus"));
}

bool ApplicationShellX11::eventFilter(QObject *watched, QEvent *event)
{
    const bool isShown = event->type() == QEvent::Show;
    if (!isShown && event->type() != QEvent::Expose)
        return QObject::eventFilter(watched, event);
    auto *window = qobject_cast<QWindow *>(watched);
    if (!window || !window->isTopLevel() || m_ordinary.contains(window))
        return QObject::eventFilter(watched, event);
    // Before the native window is mapped, the states are written to its property. A window manager
    // that is still withdrawing the window deletes the property, so check again once it is exposed.
    const QList<QByteArray> states{"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"};
    if (isShown || (window->isExposed() && !hasWindowStates(m_x11, *window, states)))
        addWindowStates(m_x11, *window, states);
    return QObject::eventFilter(watched, event);
}

} // namespace quellora
