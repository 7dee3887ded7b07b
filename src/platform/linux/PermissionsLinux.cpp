#include "platform/linux/PermissionsLinux.h"

#include "platform/DesktopShortcuts.h"
#include "platform/ScreenSource.h"

#include <utility>

namespace quellora {
PermissionsLinux::Session PermissionsLinux::currentSession()
{
    const bool wayland = qEnvironmentVariable("XDG_SESSION_TYPE") == QStringLiteral("wayland") ||
                         !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    return wayland ? Session::Wayland : Session::X11;
}

PermissionsLinux::PermissionsLinux(Session session, DesktopShortcuts *shortcuts)
    : m_session(session), m_shortcuts(shortcuts)
{
    if (m_shortcuts)
        connect(m_shortcuts, &DesktopShortcuts::changed, this, &PermissionsLinux::followShortcuts);
}

bool PermissionsLinux::isAccessibilityTrusted() const
{
    return m_session == Session::X11 || (m_shortcuts && m_shortcuts->state().isApplied());
}

void PermissionsLinux::followShortcuts()
{
    const bool areDelivered = m_shortcuts->state().isApplied();
    if (std::exchange(m_areKeysDelivered, areDelivered) != areDelivered && m_handler)
        m_handler();
}

bool PermissionsLinux::isScreenRecordingGranted() const
{
    if (m_session == Session::X11)
        return true;
    return m_screenSource && m_screenSource->access() == ScreenSource::Access::Granted;
}

void PermissionsLinux::setScreenSource(ScreenSource *source)
{
    m_screenSource = source;
    if (!source)
        return;
    source->onAccessChanged([this] {
        if (m_handler)
            m_handler();
    });
}

} // namespace quellora
