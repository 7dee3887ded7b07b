#pragma once

#include "platform/SocketResetProbe.h"

#include <QByteArray>
#include <QObject>
#include <QTcpSocket>
#include <QTimer>

#include <chrono>
#include <memory>

namespace quellora {

/// One connection to the OAuth callback listener: reads the beginning of a request, sends the
/// response and closes. Memory use and lifetime are bounded whatever the peer does. Main thread.
class CallbackConnection : public QObject
{
    Q_OBJECT
public:
    struct Timeouts
    {
        /// For receiving the request line, and again for sending the response.
        std::chrono::milliseconds request{5000};
        /// For receiving the rest of the request after the response: closing with unread data
        /// resets the connection, and the browser may lose the response.
        std::chrono::milliseconds linger{1000};
    };

    /// The rest of a longer request is ignored.
    static constexpr qint64 maxRequestBytes = 8192;

    CallbackConnection(std::unique_ptr<QTcpSocket> socket, Timeouts timeouts, QObject *parent);
    ~CallbackConnection() override;

    /// Starts reading. May emit signals synchronously.
    void read();
    /// Sends the response; call it after requestRead(). The connection then closes and deletes
    /// itself, even if its parent is deleted first.
    void answer(const QByteArray &bytes);

    /// Whether nothing has been received yet.
    bool isSilent() const { return m_request.isEmpty(); }

Q_SIGNALS:
    /// The request line, or what was received of it before a time-out or disconnection. Emitted at
    /// most once.
    void requestRead(const QByteArray &request);
    /// Nothing was received in time. Emitted instead of requestRead().
    void timedOut();
    /// The response was sent, or sending failed.
    /// @param error empty on success
    void answered(const QString &error);
    /// The connection failed while waiting for the request; requestRead() follows.
    void failed(const QString &description);

private:
    enum class State { Reading, Deciding, Answering, Closing };

    void readAvailable();
    void deadlinePassed();
    void socketError(QAbstractSocket::SocketError error);
    void disconnected();
    void decide();
    void answerFinished(const QString &error);

    std::unique_ptr<QTcpSocket> m_socket;
    /// Used until the request has been read.
    SocketResetProbe m_resetProbe;
    Timeouts m_timeouts;
    QTimer m_deadline;
    QByteArray m_request;
    State m_state = State::Reading;
};

} // namespace quellora
