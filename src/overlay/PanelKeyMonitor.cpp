#include "overlay/PanelKeyMonitor.h"

#include "platform/Platform.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QOperatingSystemVersion>

#include <utility>

namespace quellora {
namespace {

quint32 hotkeyModifiers(Qt::KeyboardModifiers modifiers)
{
    // The toolkit swaps the two where Command is the main modifier.
    const bool isSwapped = QOperatingSystemVersion::currentType() == QOperatingSystemVersion::MacOS;
    const auto control = isSwapped ? Qt::MetaModifier : Qt::ControlModifier;
    const auto command = isSwapped ? Qt::ControlModifier : Qt::MetaModifier;
    quint32 flags = 0;
    if (modifiers.testFlag(control))
        flags |= GlobalHotkeys::Control;
    if (modifiers.testFlag(Qt::AltModifier))
        flags |= GlobalHotkeys::Option;
    if (modifiers.testFlag(command))
        flags |= GlobalHotkeys::Command;
    if (modifiers.testFlag(Qt::ShiftModifier))
        flags |= GlobalHotkeys::Shift;
    return flags;
}

} // namespace

PanelKeyMonitor::PanelKeyMonitor(const GlobalHotkeys &hotkeys) : m_hotkeys(hotkeys) {}

PanelKeyMonitor::~PanelKeyMonitor()
{
    remove();
}

void PanelKeyMonitor::setPanel(NonFocusPanel *panel)
{
    remove();
    m_panel = panel;
}

void PanelKeyMonitor::install(std::function<void(const KeyDown &)> onKeyDown,
                              std::function<void()> onLost)
{
    remove();
    m_onKeyDown = std::move(onKeyDown);
    m_onLost = std::move(onLost);
    m_panel->makeKey();
    m_panel->setKeyboardGrabEnabled(true);
    // At the application: shortcuts and focus chains of the window see nothing of it.
    qGuiApp->installEventFilter(this);
    connect(m_panel, &QWindow::activeChanged, this, [this] {
        // A copy: it removes the monitor.
        if (const auto lost = m_onLost; lost && !m_panel->isActive())
            lost();
    });
}

void PanelKeyMonitor::remove()
{
    if (!m_onKeyDown)
        return;
    m_onKeyDown = nullptr;
    m_onLost = nullptr;
    qGuiApp->removeEventFilter(this);
    if (!m_panel)
        return;
    m_panel->disconnect(this);
    m_panel->setKeyboardGrabEnabled(false);
}

KeyDown PanelKeyMonitor::keyDown(const QKeyEvent &event, const GlobalHotkeys &hotkeys)
{
    return {hotkeyModifiers(event.modifiers()), hotkeys.keyName(event.nativeScanCode()),
            event.key() == Qt::Key_Escape};
}

bool PanelKeyMonitor::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        event->accept();
        return true;
    case QEvent::KeyRelease:
        // Of a press that was taken, or of the one that started the recording.
        return true;
    case QEvent::KeyPress: {
        // A copy: the handler may remove the monitor.
        const auto onKeyDown = m_onKeyDown;
        onKeyDown(keyDown(*static_cast<QKeyEvent *>(event), m_hotkeys));
        return true;
    }
    default:
        return QObject::eventFilter(watched, event);
    }
}

} // namespace quellora
