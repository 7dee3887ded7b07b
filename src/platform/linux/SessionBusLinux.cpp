#include "platform/linux/SessionBusLinux.h"

#include <QCoreApplication>
#include <QFile>
#include <QPointer>
#include <QThreadPool>
#include <QUuid>

namespace quellora {

SessionBusLinux::SessionBusLinux(const QString &purpose, const QString &busAddress, QObject *parent)
    : QObject(parent)
    , m_name(QStringLiteral("quellora-%1-%2")
                 .arg(purpose, QUuid::createUuid().toString(QUuid::WithoutBraces)))
{
    if (busAddress.isEmpty())
        return;
    m_isConnecting = true;
    QThreadPool::globalInstance()->start(
        [self = QPointer(this), app = QPointer(qApp), name = m_name, busAddress] {
            QDBusConnection::connectToBus(busAddress, name);
            if (!app)
                return;
            QMetaObject::invokeMethod(
                app,
                [self, name] {
                    if (self)
                        self->handleConnectFinished();
                    else
                        QDBusConnection::disconnectFromBus(name);
                },
                Qt::QueuedConnection);
        });
}

SessionBusLinux::~SessionBusLinux()
{
    // Cannot be disconnected while connecting; the queued call then disconnects it.
    if (!m_isConnecting)
        QDBusConnection::disconnectFromBus(m_name);
}

void SessionBusLinux::handleConnectFinished()
{
    m_isConnecting = false;
    if (connection().isConnected()) {
        Q_EMIT connected();
        return;
    }
    QDBusConnection::disconnectFromBus(m_name);
    Q_EMIT failed();
}

QString SessionBusLinux::address()
{
    const QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    if (!address.isEmpty())
        return address;
    const QString socket = qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/bus");
    return QFile::exists(socket) ? QStringLiteral("unix:path=") + socket : QString();
}

QString SessionBusLinux::systemAddress()
{
    const QString address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    if (!address.isEmpty())
        return address;
    const QString socket = QStringLiteral("/run/dbus/system_bus_socket");
    return QFile::exists(socket) ? QStringLiteral("unix:path=") + socket : QString();
}

QString SessionBusLinux::errorText(const QDBusMessage &error)
{
    constexpr int limit = 200;
    const QString text = error.errorMessage().simplified();
    return text.size() > limit ? text.left(limit) + QStringLiteral("…") : text;
}

} // namespace quellora
