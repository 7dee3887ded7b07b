#include "platform/linux/PermissionsLinux.h"

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
    , m_hasScreenshots(session == Session::X11)
{
    connect(&m_bus, &SessionBusLinux::connected, this, &PermissionsLinux::watchPortal);
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
    queryPortal(QStringLiteral("org.freedesktop.portal.Screenshot"), m_hasScreenshots);
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
