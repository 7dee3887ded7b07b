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
    QThreadPool::globalInstance()->start(
        [self = QPointer(this), app = QPointer(qApp), name = m_name, busAddress] {
            const QDBusConnection bus = QDBusConnection::connectToBus(busAddress, name);
            const bool isConnected = bus.isConnected();
            if (!app)
                return;
            QMetaObject::invokeMethod(
                app,
                [self, name, isConnected] {
                    if (self && isConnected)
                        Q_EMIT self->connected();
                    else
                        QDBusConnection::disconnectFromBus(name);
                },
                Qt::QueuedConnection);
        });
}

SessionBusLinux::~SessionBusLinux()
{
    QDBusConnection::disconnectFromBus(m_name);
}

QString SessionBusLinux::address()
{
    const QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    if (!address.isEmpty())
        return address;
    const QString socket = qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/bus");
    return QFile::exists(socket) ? QStringLiteral("unix:path=") + socket : QString();
}

} // namespace quellora
