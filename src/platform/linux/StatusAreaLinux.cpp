#include "platform/linux/StatusAreaLinux.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

namespace quellora {
namespace {

const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");

} // namespace

StatusAreaLinux::StatusAreaLinux(const std::optional<X11Connection> &x11, const QString &busAddress)
    : m_bus(QStringLiteral("tray"), busAddress)
{
    if (x11) {
        m_selection.emplace(*x11, "_NET_SYSTEM_TRAY_S");
        m_selection->onChanged([this] { update(); });
    }
    m_available = isSelectionOwned();
    connect(&m_bus, &SessionBusLinux::connected, this, &StatusAreaLinux::watchBus);
}

void StatusAreaLinux::watchBus()
{
    QDBusConnection bus = m_bus.connection();
    // No senders: Qt would look up a named sender's owner with a blocking call. The signals only
    // trigger another query.
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus"),
                QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameOwnerChanged"),
                {watcherService}, QString(), this, SLOT(watcherChanged(QString, QString, QString)));
    for (const auto &signal : {QStringLiteral("StatusNotifierHostRegistered"),
                               QStringLiteral("StatusNotifierHostUnregistered")})
        bus.connect(QString(), watcherPath, watcherService, signal, this, SLOT(queryHost()));
    queryHost();
}

void StatusAreaLinux::watcherChanged(const QString &, const QString &, const QString &now)
{
    if (now.isEmpty())
        setHostRegistered(false);
    else
        queryHost();
}

void StatusAreaLinux::queryHost()
{
    QDBusMessage get = QDBusMessage::createMethodCall(
        watcherService, watcherPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    get << watcherService << QStringLiteral("IsStatusNotifierHostRegistered");
    // The query must not start a tray through D-Bus activation.
    get.setAutoStartService(false);
    auto *watcher = new QDBusPendingCallWatcher(m_bus.connection().asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher *finished) {
                const QDBusPendingReply<QDBusVariant> reply = *finished;
                setHostRegistered(!reply.isError() && reply.value().variant().toBool());
                finished->deleteLater();
            });
}

void StatusAreaLinux::setHostRegistered(bool registered)
{
    m_hostRegistered = registered;
    update();
}

void StatusAreaLinux::update()
{
    const bool available = m_hostRegistered || isSelectionOwned();
    if (available == m_available)
        return;
    m_available = available;
    if (m_handler)
        m_handler();
}

} // namespace quellora
