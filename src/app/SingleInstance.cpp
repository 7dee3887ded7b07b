#include "app/SingleInstance.h"

#include "base/Log.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include <utility>

namespace quellora {

namespace {

const QByteArray command = QByteArrayLiteral("activate\n");
const QByteArray answer = QByteArrayLiteral("ok\n");

void log(const QString &message)
{
    Log::event(QStringLiteral("[SingleInstance] ") + message);
}

int left(const QDeadlineTimer &deadline)
{
    return static_cast<int>(deadline.remainingTime());
}

} // namespace

SingleInstance::SingleInstance(const QString &folder, const QString &session,
                               std::chrono::milliseconds commandTime, QObject *parent)
    : QObject(parent)
    // Socket paths are short by nature; a display's name may hold a whole path.
    , m_path(QDir(folder).filePath(
          QStringLiteral("quellora-") +
          QString::fromLatin1(QCryptographicHash::hash(session.toUtf8(), QCryptographicHash::Sha256)
                                  .toHex()
                                  .left(16))))
    , m_commandTime(commandTime)
    , m_lock(m_path + QStringLiteral(".lock"))
{
    // The holder's age says nothing: the program runs for weeks. Only its death frees the lock.
    m_lock.setStaleLockTime(0);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

QString SingleInstance::runtimeFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
}

SingleInstance::Claim SingleInstance::claim()
{
    if (m_lock.tryLock(0))
        return Claim::First;
    if (m_lock.error() == QLockFile::LockFailedError)
        return Claim::Taken;
    log(QStringLiteral("WARNING: No lock can be made; a second start will not be noticed"));
    return Claim::First;
}

bool SingleInstance::activateFirst(std::chrono::milliseconds patience)
{
    const QDeadlineTimer deadline(patience);
    QLocalSocket socket;
    // The first may still be on its way to listening.
    while (true) {
        socket.connectToServer(socketPath());
        if (socket.waitForConnected(left(deadline)))
            break;
        if (deadline.hasExpired())
            return false;
        QThread::msleep(20);
    }
    socket.write(command);
    QByteArray received;
    while (received.size() < answer.size()) {
        if (socket.bytesAvailable() == 0 && !socket.waitForReadyRead(left(deadline)))
            return false;
        received += socket.read(answer.size());
    }
    return received == answer;
}

void SingleInstance::listen(std::function<void()> onActivate)
{
    m_onActivate = std::move(onActivate);
    if (!m_lock.isLocked())
        return;
    // What a crash has left; the lock says that nobody listens there any more.
    QLocalServer::removeServer(socketPath());
    if (!m_server.listen(socketPath()))
        log(QStringLiteral("WARNING: Not listening for further starts: ") + m_server.errorString());
}

void SingleInstance::accept()
{
    while (QLocalSocket *connection = m_server.nextPendingConnection()) {
        connection->setParent(this);
        if (m_connections >= maxConnections) {
            delete connection;
            continue;
        }
        ++m_connections;
        connection->setReadBufferSize(command.size() + 1);
        connect(connection, &QObject::destroyed, this, [this] { --m_connections; });
        connect(connection, &QLocalSocket::disconnected, connection, &QObject::deleteLater);
        connect(connection, &QLocalSocket::readyRead, this,
                [this, connection] { read(*connection); });
        QTimer::singleShot(m_commandTime, connection, [connection] { connection->abort(); });
        // It may have spoken, or even left, before anybody listened.
        if (connection->bytesAvailable() > 0)
            read(*connection);
        if (connection->state() == QLocalSocket::UnconnectedState)
            connection->deleteLater();
    }
}

void SingleInstance::read(QLocalSocket &connection)
{
    if (connection.bytesAvailable() < command.size()) {
        // The beginning of the word may come in pieces, anything else need not go on.
        if (!command.startsWith(connection.peek(command.size())))
            connection.abort();
        return;
    }
    if (connection.read(command.size() + 1) != command) {
        connection.abort();
        return;
    }
    connection.write(answer);
    connection.disconnectFromServer();
    m_onActivate();
}

} // namespace quellora
