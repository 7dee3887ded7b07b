#include "fakes/ScriptedHttpServer.h"

#include <QTcpSocket>

#include <memory>

namespace quellora {

namespace {

QByteArray headerBlock(const QByteArray &bytes)
{
    return bytes.left(bytes.indexOf("\r\n\r\n"));
}

bool isComplete(const QByteArray &bytes)
{
    const qsizetype end = bytes.indexOf("\r\n\r\n");
    if (end < 0)
        return false;
    const ScriptedHttpServer::Request request{bytes};
    return bytes.size() >= end + 4 + request.header("content-length").toLongLong();
}

} // namespace

QByteArray ScriptedHttpServer::Request::startLine() const
{
    return bytes.left(bytes.indexOf("\r\n"));
}

QByteArray ScriptedHttpServer::Request::body() const
{
    return bytes.mid(bytes.indexOf("\r\n\r\n") + 4);
}

QList<QByteArray> ScriptedHttpServer::Request::headerNames() const
{
    QList<QByteArray> names;
    for (const QByteArray &line : headerBlock(bytes).split('\n').mid(1))
        names.append(line.left(line.indexOf(':')));
    return names;
}

QByteArray ScriptedHttpServer::Request::header(const QByteArray &name) const
{
    for (const QByteArray &line : headerBlock(bytes).split('\n').mid(1)) {
        const qsizetype colon = line.indexOf(':');
        if (line.left(colon).toLower() == name.toLower())
            return line.mid(colon + 1).trimmed();
    }
    return {};
}

ScriptedHttpServer::ScriptedHttpServer(QObject *parent) : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &ScriptedHttpServer::accept);
    if (!m_server.listen(QHostAddress::LocalHost))
        qFatal("no loopback port: %s", qPrintable(m_server.errorString()));
}

ScriptedHttpServer::~ScriptedHttpServer()
{
    // Closing the sockets would otherwise call slots that use members destroyed before them.
    for (QTcpSocket *socket : m_server.findChildren<QTcpSocket *>())
        socket->disconnect(this);
}

QString ScriptedHttpServer::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort());
}

void ScriptedHttpServer::answerWith(const QByteArray &bytes, Ending ending)
{
    m_answer = bytes;
    m_ending = ending;
}

void ScriptedHttpServer::send(int request, const QByteArray &bytes)
{
    m_sockets.at(request)->write(bytes);
    m_sockets.at(request)->flush();
}

void ScriptedHttpServer::end(int request, Ending ending)
{
    QTcpSocket *socket = m_sockets.at(request);
    if (ending == Ending::Close)
        socket->disconnectFromHost();
    else if (ending == Ending::Reset)
        socket->abort();
}

QByteArray ScriptedHttpServer::answer(int status, const QByteArray &body,
                                      const QByteArray &extraHeaders)
{
    return "HTTP/1.1 " + QByteArray::number(status) +
           " Status\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" + extraHeaders +
           "\r\n" + body;
}

QByteArray ScriptedHttpServer::streamHeader()
{
    return "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n";
}

void ScriptedHttpServer::accept()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        ++m_connections;
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        const auto pending = std::make_shared<QByteArray>();
        connect(socket, &QTcpSocket::readyRead, this,
                [this, socket, pending] { read(socket, pending); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            for (qsizetype i = 0; i < m_sockets.size(); ++i) {
                if (m_sockets[i] == socket)
                    m_requests[i].disconnected = true;
            }
        });
    }
}

void ScriptedHttpServer::read(QTcpSocket *socket, const std::shared_ptr<QByteArray> &pending)
{
    *pending += socket->readAll();
    if (!isComplete(*pending))
        return;
    m_requests.append(Request{std::exchange(*pending, {})});
    m_sockets.append(socket);
    const int index = static_cast<int>(m_requests.size()) - 1;
    if (!m_answer.isEmpty())
        send(index, m_answer);
    end(index, m_ending);
    Q_EMIT requestArrived(index);
}

} // namespace quellora
