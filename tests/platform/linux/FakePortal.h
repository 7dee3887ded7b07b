#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QtTest>

namespace quellora {

/// A session bus for one test; its daemon is killed by the destructor.
class PrivateBus
{
public:
    ~PrivateBus()
    {
        m_daemon.kill();
        m_daemon.waitForFinished();
    }
    bool start()
    {
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--session"), QStringLiteral("--nofork"),
                        QStringLiteral("--print-address")});
        if (!m_daemon.waitForStarted() ||
            !QTest::qWaitFor([this] { return m_daemon.canReadLine(); }))
            return false;
        m_address = QString::fromLocal8Bit(m_daemon.readLine()).trimmed();
        return !m_address.isEmpty();
    }
    const QString &address() const { return m_address; }

private:
    QProcess m_daemon;
    QString m_address;
};

/// A desktop portal with two settings; registered on the bus during its lifetime.
class FakePortal : public QDBusVirtualObject
{
    Q_OBJECT
public:
    explicit FakePortal(const QString &busAddress)
    {
        QDBusConnection bus = QDBusConnection::connectToBus(busAddress, QStringLiteral("portal"));
        m_isServing = bus.isConnected() && bus.registerVirtualObject(objectPath(), this) &&
                      bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop"));
    }
    ~FakePortal() override { QDBusConnection::disconnectFromBus(QStringLiteral("portal")); }

    bool isServing() const { return m_isServing; }
    /// Emits SettingChanged. Does not affect the values returned by Read.
    bool sendChange(const QString &group, const QString &key, const QVariant &newValue)
    {
        QDBusMessage signal = QDBusMessage::createSignal(objectPath(), settingsInterface(),
                                                         QStringLiteral("SettingChanged"));
        signal << group << key << QVariant::fromValue(QDBusVariant(newValue));
        return QDBusConnection(QStringLiteral("portal")).send(signal);
    }

    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.interface() != settingsInterface() ||
            message.member() != QStringLiteral("Read"))
            return false;
        const bool isMotion =
            message.arguments() == QVariantList{QStringLiteral("org.gnome.desktop.interface"),
                                                QStringLiteral("enable-animations")};
        ++(isMotion ? motionReads : reads);
        if (!isMotion)
            readArguments = message.arguments();
        const QVariant &answer = isMotion ? animations : value;
        if (refuses || !answer.isValid())
            connection.send(message.createErrorReply(QDBusError::UnknownMethod,
                                                     QStringLiteral("no such setting")));
        else
            connection.send(message.createReply(
                QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusVariant(answer))))));
        return true;
    }

    QVariant value = 0U;
    /// Invalid if the desktop lacks the setting.
    QVariant animations;
    bool refuses = false;
    int reads = 0;
    int motionReads = 0;
    QVariantList readArguments;

private:
    static QString objectPath() { return QStringLiteral("/org/freedesktop/portal/desktop"); }
    static QString settingsInterface() { return QStringLiteral("org.freedesktop.portal.Settings"); }

    bool m_isServing = false;
};

} // namespace quellora
