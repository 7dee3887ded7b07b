#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

class QLocalSocket;

namespace quellora {

/// Allows one running instance per user and display session. The first instance holds a lock file
/// and listens on a private socket; later ones ask it to raise its window and exit. Main thread
/// only.
///
/// Data received on the socket is untrusted: only the command "activate" is accepted, anything else
/// closes the connection. Received data is never logged.
class SingleInstance : public QObject
{
    Q_OBJECT
public:
    enum class Claim {
        /// This instance holds the session, or no lock could be created: continue.
        Acquired,
        /// Another running instance holds the session.
        Taken,
    };

    /// @param folder the user's private folder for the socket and the lock file
    /// @param session identifies the display session among those of the user, e.g. the display name
    /// @param commandTimeout a connection that sends no command in this time is closed
    SingleInstance(const QString &folder, const QString &session,
                   std::chrono::milliseconds commandTimeout = std::chrono::seconds(2),
                   QObject *parent = nullptr);

    static QString runtimeFolder();

    /// Tries to lock the session, taking over the lock of a process that has ended. Logs a warning
    /// and returns Acquired if no lock can be created.
    Claim claim();
    /// Asks the running instance to raise its window. Blocks until it has replied; returns false if
    /// it has not done so within @p timeout. Needs no application object.
    bool activateRunningInstance(std::chrono::milliseconds timeout);
    /// Starts listening for later instances; @p onActivate is called from the event loop. Requires
    /// the application object. Does nothing unless claim() has locked the session; logs a warning
    /// if listening fails.
    void listen(std::function<void()> onActivate);

    QString socketPath() const { return m_path + QStringLiteral(".socket"); }

    /// Maximum number of simultaneous connections; further ones are refused.
    static constexpr int maxConnections = 8;

private:
    void acceptConnections();
    void readCommand(QLocalSocket &connection);

    QString m_path;
    std::chrono::milliseconds m_commandTimeout;
    QLockFile m_lock;
    QLocalServer m_server;
    int m_connections = 0;
    std::function<void()> m_onActivate;
};

} // namespace quellora
