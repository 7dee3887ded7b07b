#include "app/SingleInstance.h"

#include "base/Log.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

const QByteArray okReply = QByteArrayLiteral("ok");
const QByteArray refusalReply = QByteArrayLiteral("refused: ");
/// Longest reply read, in bytes.
constexpr qsizetype maxReply = 1024;

qsizetype maxCommandLine()
{
    qsizetype longest = 0;
    for (const RemoteCommand &command : remoteCommands)
        longest = std::max(longest, QByteArrayView(command.name).size());
    return longest + 1;
}

bool isStartOfCommand(const QByteArray &text)
{
    return std::any_of(remoteCommands.begin(), remoteCommands.end(), [&](const auto &command) {
        return QByteArray(command.name).startsWith(text);
    });
}

void log(const QString &message)
{
    Log::event(QStringLiteral("[SingleInstance] ") + message);
}

int remainingMs(const QDeadlineTimer &deadline)
{
    return static_cast<int>(deadline.remainingTime());
}

} // namespace

SingleInstance::SingleInstance(const QString &folder, const QString &session,
                               std::chrono::milliseconds commandTimeout, QObject *parent)
    : QObject(parent)
    // Hashed because socket paths are limited in length and a display name may contain a path.
    , m_path(QDir(folder).filePath(
          QStringLiteral("quellora-") +
          QString::fromLatin1(QCryptographicHash::hash(session.toUtf8(), QCryptographicHash::Sha256)
                                  .toHex()
                                  .left(16))))
    , m_commandTimeout(commandTimeout)
    , m_lock(m_path + QStringLiteral(".lock"))
{
    // Disable expiry by age, because the program may run for weeks. A lock is stale only if the
    // process that holds it has ended.
    m_lock.setStaleLockTime(0);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
}

QString SingleInstance::runtimeFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
}

SingleInstance::Claim SingleInstance::claim()
{
    if (m_lock.tryLock(0))
        return Claim::Acquired;
    if (m_lock.error() == QLockFile::LockFailedError)
        return Claim::Taken;
    log(QStringLiteral("WARNING: No lock can be made; a second start will not be noticed"));
    return Claim::Acquired;
}

bool SingleInstance::hasListener() const
{
    QLocalSocket socket;
    socket.connectToServer(socketPath());
    return socket.waitForConnected(1000);
}

SingleInstance::Reply SingleInstance::send(const RemoteCommand &command,
                                           std::chrono::milliseconds timeout)
{
    const QDeadlineTimer deadline(timeout);
    QLocalSocket socket;
    // Retry: the running instance may not be listening yet.
    while (true) {
        socket.connectToServer(socketPath());
        if (socket.waitForConnected(remainingMs(deadline)))
            break;
        if (deadline.hasExpired())
            return {};
        QThread::msleep(20);
    }
    socket.write(command.name);
    socket.write("\n");
    while (!socket.canReadLine()) {
        if (socket.bytesAvailable() > maxReply || !socket.waitForReadyRead(remainingMs(deadline)))
            return {};
    }
    const QByteArray line = socket.readLine().chopped(1);
    if (line == okReply)
        return {true, {}};
    if (line.startsWith(refusalReply))
        return {true, QString::fromUtf8(line.mid(refusalReply.size()))};
    return {};
}

void SingleInstance::listen(Handler handler)
{
    m_handler = std::move(handler);
    if (!m_lock.isLocked())
        return;
    // Remove a socket left by a crash; holding the lock means that no other instance listens on it.
    QLocalServer::removeServer(socketPath());
    if (!m_server.listen(socketPath()))
        log(QStringLiteral("WARNING: Not listening for further starts: ") + m_server.errorString());
}

void SingleInstance::acceptConnections()
{
    while (QLocalSocket *connection = m_server.nextPendingConnection()) {
        connection->setParent(this);
        if (m_connections >= maxConnections) {
            delete connection;
            continue;
        }
        ++m_connections;
        connection->setReadBufferSize(maxCommandLine() + 1);
        connect(connection, &QObject::destroyed, this, [this] { --m_connections; });
        connect(connection, &QLocalSocket::disconnected, connection, &QObject::deleteLater);
        connect(connection, &QLocalSocket::readyRead, this,
                [this, connection] { readCommand(*connection); });
        QTimer::singleShot(m_commandTimeout, connection, [connection] { connection->abort(); });
        // Data or a disconnect may have arrived before the signals were connected.
        if (connection->bytesAvailable() > 0)
            readCommand(*connection);
        if (connection->state() == QLocalSocket::UnconnectedState)
            connection->deleteLater();
    }
}

void SingleInstance::readCommand(QLocalSocket &connection)
{
    if (!connection.canReadLine()) {
        // Wait for the rest of a partial command; drop anything else.
        if (!isStartOfCommand(connection.peek(maxCommandLine())))
            connection.abort();
        return;
    }
    const RemoteCommand *command = findRemoteCommand(connection.readLine().chopped(1));
    if (!command || connection.bytesAvailable() > 0) {
        connection.abort();
        return;
    }
    const QString refusal = m_handler(*command);
    connection.write((refusal.isEmpty() ? okReply : refusalReply + refusal.toUtf8()) + '\n');
    // At once: the command may end the event loop.
    connection.flush();
    connection.disconnectFromServer();
}

} // namespace quellora
