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
    // Started at login, this program may be there before the portal is.
    m_bus.connection().connect(QString(), QStringLiteral("/org/freedesktop/DBus"),
                               QStringLiteral("org.freedesktop.DBus"),
                               QStringLiteral("NameOwnerChanged"), {portalService}, QString(), this,
                               SLOT(portalChanged(QString, QString, QString)));
    askPortal();
}

void PermissionsLinux::portalChanged(const QString &, const QString &, const QString &now)
{
    // A portal that went away is started again by its next use.
    if (!now.isEmpty())
        askPortal();
}

void PermissionsLinux::askPortal()
{
    ask(QStringLiteral("org.freedesktop.portal.GlobalShortcuts"), m_hasShortcuts);
    ask(QStringLiteral("org.freedesktop.portal.Screenshot"), m_hasScreenshots);
}

void PermissionsLinux::ask(const QString &portal, bool &available)
{
    QDBusMessage get = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    get << portal << QStringLiteral("version");
    auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, &available](QDBusPendingCallWatcher *finished) {
                const QDBusPendingReply<QDBusVariant> reply = *finished;
                set(available, !reply.isError() && reply.value().variant().toUInt() > 0);
                finished->deleteLater();
            });
}

void PermissionsLinux::set(bool &available, bool value)
{
    if (available == value)
        return;
    available = value;
    if (m_handler)
        m_handler();
}

} // namespace quellora
