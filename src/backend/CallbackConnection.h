#pragma once

#include "platform/SocketEnd.h"

#include <QByteArray>
#include <QObject>
#include <QTcpSocket>
#include <QTimer>

#include <chrono>
#include <memory>

namespace quellora {

/// One connection to the browser sign-in's listener: reads the beginning of a request, sends the
/// answer, closes. Whatever the other side does, it holds no more than a few kilobytes and is over
/// after a while. Main thread.
class CallbackConnection : public QObject
{
    Q_OBJECT
public:
    struct Timeouts
    {
        /// For the first line of a request, and again for taking the answer.
        std::chrono::milliseconds request{5000};
        /// For the rest of a request whose answer has been sent: closing sooner could cost a
        /// browser the answer.
        std::chrono::milliseconds linger{1000};
    };

    /// Only so much of a request is looked at.
    static constexpr qint64 maxRequestBytes = 8192;

    CallbackConnection(std::unique_ptr<QTcpSocket> socket, Timeouts timeouts, QObject *parent);
    ~CallbackConnection() override;

    /// Starts reading. Signals may come from within.
    void read();
    /// Sends the answer, after requestRead(). The connection then closes and deletes itself, also
    /// when its parent has gone.
    void answer(const QByteArray &bytes);

    /// Whether nothing at all has come yet.
    bool isSilent() const { return m_request.isEmpty(); }

Q_SIGNALS:
    /// The first line, or as much of it as will come; nothing when the other side left at once.
    /// Emitted at most once.
    void requestRead(const QByteArray &request);
    /// Nothing came in time. Emitted instead of requestRead().
    void timedOut();
    /// The answer has left, or cannot.
    /// @param problem why it could not; empty for success
    void answered(const QString &problem);
    /// The connection broke while a request was awaited; requestRead() follows.
    void failed(const QString &description);

private:
    enum class State { Reading, Deciding, Answering, Closing };

    void readAvailable();
    void deadlinePassed();
    void socketError(QAbstractSocket::SocketError error);
    void disconnected();
    void decide();
    void answerFinished(const QString &problem);

    std::unique_ptr<QTcpSocket> m_socket;
    /// While a request is awaited.
    SocketEnd m_end;
    Timeouts m_timeouts;
    QTimer m_deadline;
    QByteArray m_request;
    State m_state = State::Reading;
};

} // namespace quellora
