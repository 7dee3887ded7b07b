#include "platform/linux/PermissionsLinux.h"

#include "platform/ScreenSource.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

namespace quellora {
namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");

} // namespace

PermissionsLinux::Session PermissionsLinux::currentSession()
{
    const bool wayland = qEnvironmentVariable("XDG_SESSION_TYPE") == QStringLiteral("wayland") ||
                         !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    return wayland ? Session::Wayland : Session::X11;
}

PermissionsLinux::PermissionsLinux(Session session, const QString &busAddress)
    : m_bus(QStringLiteral("permissions"), session == Session::Wayland ? busAddress : QString())
    , m_hasShortcuts(session == Session::X11)
    , m_session(session)
{
    connect(&m_bus, &SessionBusLinux::connected, this, &PermissionsLinux::watchPortal);
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

void PermissionsLinux::watchPortal()
{
    // At login this program may start before the portal.
    m_bus.connection().connect(QString(), QStringLiteral("/org/freedesktop/DBus"),
                               QStringLiteral("org.freedesktop.DBus"),
                               QStringLiteral("NameOwnerChanged"), {portalService}, QString(), this,
                               SLOT(portalChanged(QString, QString, QString)));
    queryPortals();
}

void PermissionsLinux::portalChanged(const QString &, const QString &, const QString &now)
{
    // Nothing to do if the portal exits: D-Bus activation restarts it on the next call.
    if (!now.isEmpty())
        queryPortals();
}

void PermissionsLinux::queryPortals()
{
    queryPortal(QStringLiteral("org.freedesktop.portal.GlobalShortcuts"), m_hasShortcuts);
}

void PermissionsLinux::queryPortal(const QString &portal, bool &available)
{
    QDBusMessage get = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    get << portal << QStringLiteral("version");
    auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, &available](QDBusPendingCallWatcher *finished) {
                const QDBusPendingReply<QDBusVariant> reply = *finished;
                setAvailable(available, !reply.isError() && reply.value().variant().toUInt() > 0);
                finished->deleteLater();
            });
}

void PermissionsLinux::setAvailable(bool &available, bool value)
{
    if (available == value)
        return;
    available = value;
    if (m_handler)
        m_handler();
}

} // namespace quellora
