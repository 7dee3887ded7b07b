#include "backend/CallbackConnection.h"

#include <QCoreApplication>

#include <utility>

namespace quellora {

CallbackConnection::CallbackConnection(std::unique_ptr<QTcpSocket> socket, Timeouts timeouts,
                                       QObject *parent)
    : QObject(parent)
    , m_socket(std::move(socket))
    , m_resetProbe(m_socket->socketDescriptor())
    , m_timeouts(timeouts)
{
    // The server that created the socket may be deleted first.
    m_socket->setParent(nullptr);
    m_socket->setReadBufferSize(maxRequestBytes);
    m_deadline.setSingleShot(true);
    connect(m_socket.get(), &QTcpSocket::readyRead, this, &CallbackConnection::readAvailable);
    connect(m_socket.get(), &QTcpSocket::errorOccurred, this, &CallbackConnection::socketError);
    connect(m_socket.get(), &QTcpSocket::disconnected, this, &CallbackConnection::disconnected);
    connect(m_socket.get(), &QTcpSocket::bytesWritten, this, [this] {
        if (m_state == State::Answering && m_socket->bytesToWrite() == 0)
            answerFinished({});
    });
    connect(&m_deadline, &QTimer::timeout, this, &CallbackConnection::deadlinePassed);
}

CallbackConnection::~CallbackConnection()
{
    // Destroying the socket must not emit signals into this object.
    m_socket->disconnect(this);
}

void CallbackConnection::read()
{
    m_deadline.start(m_timeouts.request);
    if (m_socket->state() == QAbstractSocket::ConnectedState)
        readAvailable();
    else
        disconnected();
}

void CallbackConnection::readAvailable()
{
    if (m_state == State::Reading) {
        m_request += m_socket->read(maxRequestBytes - m_request.size());
        // The request line may arrive in pieces; the rest of the request is ignored.
        if (m_request.contains("\r\n") || m_request.size() >= maxRequestBytes)
            decide();
    } else if (m_state == State::Closing) {
        // Discard everything but what is needed to detect the end of the header.
        m_request = m_request.right(3) + m_socket->readAll();
        if (m_request.contains("\r\n\r\n"))
            m_socket->disconnectFromHost();
    }
}

void CallbackConnection::decide()
{
    m_state = State::Deciding;
    m_resetProbe.release();
    m_deadline.stop();
    Q_EMIT requestRead(m_request);
}

void CallbackConnection::answer(const QByteArray &bytes)
{
    m_state = State::Answering;
    if (m_socket->state() != QAbstractSocket::ConnectedState || m_socket->write(bytes) < 0) {
        answerFinished(m_socket->errorString());
        return;
    }
    m_deadline.start(m_timeouts.request);
    // Flush now: when the peer half-closes, the socket is closed for writing as well.
    m_socket->flush();
}

void CallbackConnection::answerFinished(const QString &error)
{
    m_state = State::Closing;
    setParent(QCoreApplication::instance());
    m_deadline.start(m_timeouts.linger);
    if (!error.isEmpty() || m_socket->state() == QAbstractSocket::UnconnectedState)
        deleteLater();
    else if (m_request.contains("\r\n\r\n"))
        m_socket->disconnectFromHost();
    Q_EMIT answered(error);
}

void CallbackConnection::deadlinePassed()
{
    switch (m_state) {
    case State::Reading:
        if (isSilent()) {
            m_state = State::Deciding;
            Q_EMIT timedOut();
        } else {
            decide();
        }
        break;
    case State::Deciding:
        break;
    case State::Answering:
        answerFinished(QStringLiteral("The browser did not take it"));
        break;
    case State::Closing:
        deleteLater();
        break;
    }
}

void CallbackConnection::socketError(QAbstractSocket::SocketError error)
{
    // RemoteHostClosedError (also reported for a reset) is handled in disconnected(), which
    // follows.
    if (m_state == State::Reading && error != QAbstractSocket::RemoteHostClosedError)
        Q_EMIT failed(m_socket->errorString());
    else if (m_state == State::Answering)
        answerFinished(m_socket->errorString());
}

void CallbackConnection::disconnected()
{
    if (m_state == State::Reading) {
        m_request += m_socket->read(maxRequestBytes - m_request.size());
        if (m_resetProbe.isReset())
            Q_EMIT failed(SocketResetProbe::resetErrorText());
        decide();
    } else if (m_state == State::Answering) {
        answerFinished(m_socket->errorString());
    } else if (m_state == State::Closing) {
        deleteLater();
    }
}

} // namespace quellora
