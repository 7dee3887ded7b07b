#include "app/SingleInstance.h"

#include "base/Log.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QFutureWatcher>
#include <QImage>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <array>
#include <utility>

namespace quellora {

namespace {

const QByteArray okReply = QByteArrayLiteral("ok");
const QByteArray refusalReply = QByteArrayLiteral("refused: ");
struct PictureRequest
{
    QByteArray line;
    ScreenSource::Area area;
};
const std::array<PictureRequest, 3> pictureRequests{{
    {QByteArrayLiteral("picture"), ScreenSource::Area::OneScreen},
    {QByteArrayLiteral("picture-all"), ScreenSource::Area::AllScreens},
    {QByteArrayLiteral("picture-window"), ScreenSource::Area::FrontWindow},
}};
/// Time for a picture and its transfer.
constexpr std::chrono::seconds pictureTimeout{150};
/// Bytes of a picture that are handed to the system at once.
constexpr qsizetype pictureChunk = 1024 * 1024;
/// Longest reply read, in bytes.
constexpr qsizetype maxReply = 1024;

qsizetype maxCommandLine()
{
    qsizetype longest = 0;
    for (const PictureRequest &request : pictureRequests)
        longest = std::max(longest, request.line.size());
    for (const RemoteCommand &command : remoteCommands) {
        const qsizetype operand = command.takesOperand() ? 1 + RemoteCommand::maximumOperand : 0;
        longest = std::max(longest, QByteArrayView(command.name).size() + operand);
    }
    return longest + 1;
}

bool isStartOfCommand(const QByteArray &text)
{
    if (std::any_of(pictureRequests.begin(), pictureRequests.end(),
                    [&](const PictureRequest &request) { return request.line.startsWith(text); }))
        return true;
    return std::any_of(remoteCommands.begin(), remoteCommands.end(), [&](const auto &command) {
        const QByteArray name(command.name);
        return name.startsWith(text) || (command.takesOperand() && text.startsWith(name + ' '));
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

SingleInstance::Reply SingleInstance::send(const RemoteCommand &command, const QByteArray &operand,
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
    if (!operand.isEmpty())
        socket.write(' ' + operand);
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
        auto *limit = new QTimer(connection);
        limit->setSingleShot(true);
        connect(limit, &QTimer::timeout, connection, [connection] { connection->abort(); });
        limit->start(m_commandTimeout);
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
    const QByteArray line = connection.readLine().chopped(1);
    const auto picture =
        std::find_if(pictureRequests.begin(), pictureRequests.end(),
                     [&line](const PictureRequest &request) { return request.line == line; });
    if (m_pictures && picture != pictureRequests.end() && connection.bytesAvailable() == 0) {
        sendPicture(connection, picture->area);
        return;
    }
    const qsizetype blank = line.indexOf(' ');
    const bool hasOperand = blank >= 0;
    const QByteArray operand = hasOperand ? line.mid(blank + 1) : QByteArray();
    const RemoteCommand *command = findRemoteCommand(hasOperand ? line.left(blank) : line);
    if (!command || connection.bytesAvailable() > 0 || command->takesOperand() != hasOperand ||
        hasOperand == operand.isEmpty() || operand.size() > RemoteCommand::maximumOperand) {
        connection.abort();
        return;
    }
    const QString refusal = m_handler(*command, QString::fromUtf8(operand));
    connection.write((refusal.isEmpty() ? okReply : refusalReply + refusal.toUtf8()) + '\n');
    // At once: the command may end the event loop.
    connection.flush();
    connection.disconnectFromServer();
}

namespace {

/// Sends the pixels of a picture in parts, as the reader takes them. A child of its connection.
class PictureTransfer : public QObject
{
public:
    PictureTransfer(QLocalSocket &connection, const QImage &picture)
        : QObject(&connection), m_connection(connection), m_picture(picture)
    {
        connect(&connection, &QLocalSocket::bytesWritten, this, &PictureTransfer::sendNext);
        connection.write(QByteArrayLiteral("picture %1 %2\n")
                             .replace("%1", QByteArray::number(picture.width()))
                             .replace("%2", QByteArray::number(picture.height())));
    }

private:
    void sendNext()
    {
        const qsizetype rowBytes = qsizetype{m_picture.width()} * 4;
        const qsizetype rows = std::max<qsizetype>(1, pictureChunk / rowBytes);
        if (m_connection.bytesToWrite() > pictureChunk)
            return;
        for (qsizetype i = 0; i < rows && m_row < m_picture.height(); ++i, ++m_row)
            m_connection.write(reinterpret_cast<const char *>(m_picture.constScanLine(m_row)),
                               rowBytes);
        if (m_row == m_picture.height() && m_connection.bytesToWrite() == 0)
            m_connection.disconnectFromServer();
    }

    QLocalSocket &m_connection;
    const QImage m_picture;
    int m_row = 0;
};

} // namespace

void SingleInstance::sendPicture(QLocalSocket &connection, ScreenSource::Area area)
{
    log(QStringLiteral("Picture requested by the capture tool"));
    if (auto *limit = connection.findChild<QTimer *>())
        limit->start(pictureTimeout);
    // Nothing more is expected.
    disconnect(&connection, &QLocalSocket::readyRead, this, nullptr);
    QFuture<ScreenSource::Picture> picture = m_pictures(area);
    auto *watcher = new QFutureWatcher<ScreenSource::Picture>(&connection);
    connect(watcher, &QFutureWatcherBase::finished, &connection, [watcher, &connection] {
        const bool isThere = watcher->future().resultCount() > 0;
        const ScreenSource::Picture result =
            isThere ? watcher->future().result()
                    : tl::unexpected(
                          ScreenSource::Failure{ScreenSource::Failure::Kind::Failed,
                                                QStringLiteral("the picture was cancelled")});
        if (!result || result->isNull()) {
            QString reason =
                result ? QStringLiteral("the picture is empty") : result.error().reason;
            connection.write(refusalReply + reason.replace(u'\n', u' ').toUtf8() + '\n');
            connection.disconnectFromServer();
            return;
        }
        new PictureTransfer(connection, result->convertToFormat(QImage::Format_RGB32));
    });
    // A reader that leaves does not need the picture.
    connect(&connection, &QLocalSocket::disconnected, watcher,
            [picture]() mutable { picture.cancel(); });
    watcher->setFuture(picture);
}

} // namespace quellora
