#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>

namespace quellora {

/// A private connection to the session bus, or to another message bus by its address. Connects on a
/// worker thread, because connecting blocks until the bus replies. Main thread only.
class SessionBusLinux : public QObject
{
    Q_OBJECT
public:
    /// Starts connecting.
    /// @param purpose used in the connection's name
    /// @param busAddress address of the bus; if empty, connected() is never emitted
    SessionBusLinux(const QString &purpose, const QString &busAddress, QObject *parent = nullptr);
    ~SessionBusLinux() override;

    /// The address of the running session bus; empty if there is none. Never starts one.
    static QString address();
    /// The address of the system bus; empty if there is none.
    static QString systemAddress();

    /// Another program's error message for logs and users: one line of at most 200 characters.
    static QString errorText(const QDBusMessage &error);

    /// Valid once connected() has been emitted.
    QDBusConnection connection() const { return QDBusConnection(m_name); }

Q_SIGNALS:
    void connected();
    /// The bus cannot be reached.
    void failed();

private:
    void handleConnectFinished();

    QString m_name;
    bool m_isConnecting = false;
};

} // namespace quellora
