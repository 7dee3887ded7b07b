#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QTemporaryFile>
#include <QtTest>

namespace quellora {

/// A session bus for one test, which starts no services; its daemon is killed by the destructor.
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
        // Without the machine's own services: one of them may be installed.
        if (!m_configuration.open() || m_configuration.write(configuration) < 0 ||
            !m_configuration.flush())
            return false;
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--config-file=") + m_configuration.fileName(),
                        QStringLiteral("--nofork"), QStringLiteral("--print-address")});
        if (!m_daemon.waitForStarted() ||
            !QTest::qWaitFor([this] { return m_daemon.canReadLine(); }))
            return false;
        m_address = QString::fromLocal8Bit(m_daemon.readLine()).trimmed();
        return !m_address.isEmpty();
    }
    const QString &address() const { return m_address; }

private:
    static constexpr auto configuration =
        "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>"
        "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
        "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>";

    QTemporaryFile m_configuration;
    QProcess m_daemon;
    QString m_address;
};

/// A service on a bus, with a connection of its own; registered during its lifetime. It receives
/// the calls to an object and those below it.
class BusService : public QDBusVirtualObject
{
public:
    BusService(const QString &busAddress, const QString &service, const QString &path)
        : m_service(service)
    {
        QDBusConnection bus = QDBusConnection::connectToBus(busAddress, service);
        m_isServing = bus.isConnected() &&
                      bus.registerVirtualObject(path, this, QDBusConnection::SubPath) &&
                      bus.registerService(service);
    }
    ~BusService() override { QDBusConnection::disconnectFromBus(m_service); }

    bool isServing() const { return m_isServing; }
    QString introspect(const QString &) const override { return {}; }

protected:
    bool emitSignal(const QString &path, const QString &interface, const QString &name,
                    const QVariantList &arguments)
    {
        QDBusMessage signal = QDBusMessage::createSignal(path, interface, name);
        signal.setArguments(arguments);
        return QDBusConnection(m_service).send(signal);
    }

private:
    QString m_service;
    bool m_isServing = false;
};

/// A desktop portal with settings.
class FakePortal : public BusService
{
    Q_OBJECT
public:
    explicit FakePortal(const QString &busAddress)
        : BusService(busAddress, QStringLiteral("org.freedesktop.portal.Desktop"), objectPath())
    {}

    /// Emits SettingChanged. Does not affect the values returned by Read.
    bool sendChange(const QString &group, const QString &key, const QVariant &newValue)
    {
        return emitSignal(objectPath(), settingsInterface(), QStringLiteral("SettingChanged"),
                          {group, key, QVariant::fromValue(QDBusVariant(newValue))});
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.interface() != settingsInterface() ||
            message.member() != QStringLiteral("Read"))
            return false;
        const QStringList setting{message.arguments().value(0).toString(),
                                  message.arguments().value(1).toString()};
        const bool isScheme = setting == QStringList{QStringLiteral("org.freedesktop.appearance"),
                                                     QStringLiteral("color-scheme")};
        const bool isMotion = setting == QStringList{QStringLiteral("org.gnome.desktop.interface"),
                                                     QStringLiteral("enable-animations")};
        if (isScheme) {
            ++reads;
            readArguments = message.arguments();
        } else if (isMotion) {
            ++motionReads;
        } else {
            otherReads << setting.join(QLatin1Char(' '));
        }
        const QVariant answer = isScheme   ? value
                                : isMotion ? animations
                                           : others.value(setting.join(QLatin1Char(' ')));
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
    /// Further settings, by "GROUP KEY".
    QVariantMap others;
    bool refuses = false;
    int reads = 0;
    int motionReads = 0;
    QVariantList readArguments;
    /// The further settings that were read.
    QStringList otherReads;

private:
    static QString objectPath() { return QStringLiteral("/org/freedesktop/portal/desktop"); }
    static QString settingsInterface() { return QStringLiteral("org.freedesktop.portal.Settings"); }
};

} // namespace quellora
