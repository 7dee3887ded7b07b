#pragma once

#include "app/RemoteCommand.h"
#include "platform/ScreenSource.h"

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

class QLocalSocket;

namespace quellora {

/// Allows one running instance per user and display session. The first instance holds a lock file
/// and listens on a private socket; later ones send it a command and exit. Main thread only.
///
/// Protocol: one line with the name of a remote command and, behind a blank, its operand in UTF-8
/// if it takes one; the reply is "ok", or "refused: " and the
/// reason. The lines "picture", "picture-all" and "picture-window" ask for a picture of one screen,
/// of all or of the window in front, on behalf of the capture tool: the reply is a line "picture
/// WIDTH HEIGHT", followed by the pixels row by row, each a 32-bit word 0x??RRGGBB in the order of
/// this machine; or "refused: ". Data received on the socket is untrusted: anything but one known
/// command closes the connection. Received data is never logged.
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
    /// Whether an instance accepts commands. Does not lock the session, so that it cannot prevent a
    /// start. Blocks for a moment; needs no application object.
    bool hasListener() const;
    struct Reply
    {
        bool hasArrived = false;
        /// Why the running instance does not do it; empty if it does.
        QString refusal;
    };
    /// Sends a command to the running instance. Blocks until it has replied or @p timeout has
    /// passed. Needs no application object.
    /// @param operand in UTF-8, one line; empty if the command takes none
    Reply send(const RemoteCommand &command, const QByteArray &operand,
               std::chrono::milliseconds timeout);
    /// Runs a command; returns why it is refused, in one line, or an empty text.
    using Handler = std::function<QString(const RemoteCommand &command, const QString &operand)>;
    /// Starts listening for later instances; @p handler is called from the event loop. Requires
    /// the application object. Does nothing unless claim() has locked the session; logs a warning
    /// if listening fails.
    void listen(Handler handler);

    using PictureHandler = std::function<QFuture<ScreenSource::Picture>(ScreenSource::Area area)>;
    /// Lets other processes of the user ask for pictures.
    void servePictures(PictureHandler handler) { m_pictures = std::move(handler); }

    QString socketPath() const { return m_path + QStringLiteral(".socket"); }

    /// Maximum number of simultaneous connections; further ones are refused.
    static constexpr int maxConnections = 8;

private:
    void acceptConnections();
    void readCommand(QLocalSocket &connection);
    void sendPicture(QLocalSocket &connection, ScreenSource::Area area);

    QString m_path;
    std::chrono::milliseconds m_commandTimeout;
    QLockFile m_lock;
    QLocalServer m_server;
    int m_connections = 0;
    Handler m_handler;
    PictureHandler m_pictures;
};

} // namespace quellora
