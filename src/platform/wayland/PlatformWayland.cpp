#include "platform/wayland/PlatformWayland.h"

#include "base/UserDefaults.h"
#include "platform/linux/LinuxPaths.h"
#include "platform/linux/PortalScreenSource.h"
#include "platform/wayland/KWinScreenSource.h"
#include "platform/wayland/WlrScreencopySource.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QScreen>

#include <algorithm>
#include <utility>

namespace quellora {

PlatformWayland::PlatformWayland(std::unique_ptr<WaylandConnection> connection)
    : m_connection(std::move(connection))
    , m_keyboard(*m_connection)
    , m_panelWindow(*m_connection, m_keyboard)
    , m_veil(*m_connection, m_panelWindow)
    , m_screenSource(makeScreenSource())
    , m_keyMonitor([this](quint32 scanCode) { return m_keyboard.keyName(scanCode); })
    , m_permissions(PermissionsLinux::Session::Wayland, &m_desktopShortcuts)
    , m_statusArea(std::nullopt)
    , m_clipboardData(*QGuiApplication::clipboard())
{
    m_permissions.setScreenSource(m_screenSource.get());
}

std::unique_ptr<ScreenSource> PlatformWayland::makeScreenSource()
{
    const auto panelScreen = [this] { return m_panelWindow.screenWithPanel(); };
    if (m_connection->screencopy() && m_connection->shm())
        return std::make_unique<WlrScreencopySource>(*m_connection, m_veil, panelScreen);
    auto portal = std::make_unique<PortalScreenSource>(m_veil, [panelScreen] {
        // The desktop arranges the screens in points.
        ScreenLayout layout = ScreenLayout::inPoints();
        layout.chosen = static_cast<int>(
            std::max<qsizetype>(0, QGuiApplication::screens().indexOf(panelScreen())));
        return layout;
    });
    const auto allScreens = [] {
        QRect all;
        const QList<QScreen *> screens = QGuiApplication::screens();
        for (const QScreen *screen : screens)
            all |= screen->geometry();
        return all;
    };
    return std::make_unique<KWinScreenSource>(m_veil, allScreens, std::move(portal));
}

CaptureTool PlatformWayland::captureTool() const
{
    return LinuxPaths::captureTool();
}

QString PlatformWayland::applicationSupportDirectory() const
{
    return LinuxPaths::applicationSupportDirectory();
}

std::unique_ptr<UserDefaults> PlatformWayland::makeUserDefaults() const
{
    return std::make_unique<JsonUserDefaults>(JsonUserDefaults::defaultPath());
}

} // namespace quellora
