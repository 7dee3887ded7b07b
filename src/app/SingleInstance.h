#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

class QLocalSocket;

namespace quellora {

/// One running program per user and display session. The first start holds a lock and listens on a
/// private socket; a later one asks the first to come forward and ends. Main thread.
///
/// Whatever arrives at the socket is untrusted: the one word "activate" is acted on, anything else
/// ends the connection. Nothing of it is logged.
class SingleInstance : public QObject
{
    Q_OBJECT
public:
    enum class Claim {
        /// This is the first start, or nobody can tell: go on.
        First,
        /// Another start holds the session.
        Taken,
    };

    /// @param folder private to the user; sockets and locks lie in it
    /// @param session what tells display sessions of the user apart, e.g. the display's name
    /// @param commandTime how long a connection may take to say its word
    SingleInstance(const QString &folder, const QString &session,
                   std::chrono::milliseconds commandTime = std::chrono::seconds(2),
                   QObject *parent = nullptr);

    /// The user's runtime folder.
    static QString runtimeFolder();

    /// Takes the session if it is free; a lock whose holder has died is free. Where no lock can be
    /// made the start goes on alone, with a line in the log.
    Claim claim();
    /// Asks the holder to come forward and waits for its word; false when it has not answered in
    /// time. For a start that has nothing else to do.
    bool activateFirst(std::chrono::milliseconds patience);
    /// Listens from now on; @p onActivate is called from the event loop. Needs the application
    /// object and a successful claim.
    void listen(std::function<void()> onActivate);

    /// Path of the socket.
    QString socketPath() const { return m_path + QStringLiteral(".socket"); }

    /// Connections waiting for their word at the same time; more are refused.
    static constexpr int maxConnections = 8;

private:
    void accept();
    void read(QLocalSocket &connection);

    QString m_path;
    std::chrono::milliseconds m_commandTime;
    QLockFile m_lock;
    QLocalServer m_server;
    int m_connections = 0;
    std::function<void()> m_onActivate;
};

} // namespace quellora
