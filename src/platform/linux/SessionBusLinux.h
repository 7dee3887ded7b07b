#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

namespace quellora {

/// A connection of its own to the session bus, made beside the main thread because connecting
/// speaks with the bus before it returns. Main thread only.
class SessionBusLinux : public QObject
{
    Q_OBJECT
public:
    /// Starts connecting.
    /// @param purpose tells the connections of the process apart
    /// @param busAddress session bus; empty when there is none, then nothing ever happens
    SessionBusLinux(const QString &purpose, const QString &busAddress, QObject *parent = nullptr);
    ~SessionBusLinux() override;

    /// The address of the running session bus; empty when none runs (none is ever started).
    static QString address();

    /// Usable from connected() on.
    QDBusConnection connection() const { return QDBusConnection(m_name); }

Q_SIGNALS:
    void connected();

private:
    void connectingEnded();

    QString m_name;
    bool m_isConnecting = false;
};

} // namespace quellora
