#include "platform/EventFilterKeyMonitor.h"

#include <QGuiApplication>
#include <QKeyEvent>

#include <utility>

namespace quellora {
EventFilterKeyMonitor::EventFilterKeyMonitor(KeyNames names) : m_names(std::move(names)) {}

EventFilterKeyMonitor::~EventFilterKeyMonitor()
{
    remove();
}

void EventFilterKeyMonitor::install(std::function<void(const KeyDown &)> onKeyDown)
{
    remove();
    m_onKeyDown = std::move(onKeyDown);
    // On the application, so that it runs before the windows' shortcuts and key handlers.
    qGuiApp->installEventFilter(this);
}

void EventFilterKeyMonitor::remove()
{
    if (!std::exchange(m_onKeyDown, nullptr))
        return;
    if (qGuiApp)
        qGuiApp->removeEventFilter(this);
}

KeyDown EventFilterKeyMonitor::keyDown(const QKeyEvent &event, const KeyNames &names)
{
    // Excludes the keypad and group-switch modifiers.
    constexpr Qt::KeyboardModifiers held =
        Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier | Qt::ShiftModifier;
    return {event.modifiers() & held, names(event.nativeScanCode()), event.key() == Qt::Key_Escape};
}

bool EventFilterKeyMonitor::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        event->accept();
        return true;
    case QEvent::KeyRelease:
        // Its press was intercepted or started the recording.
        return true;
    case QEvent::KeyPress: {
        // A copy: the handler may call remove().
        const auto onKeyDown = m_onKeyDown;
        onKeyDown(keyDown(*static_cast<QKeyEvent *>(event), m_names));
        return true;
    }
    default:
        return QObject::eventFilter(watched, event);
    }
}

} // namespace quellora
