#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpServer>

#include <memory>

class QTcpSocket;

namespace quellora {

/// A server on a loopback port that says exactly the bytes a test wants said, at the TCP level.
///
/// Requests are numbered in the order in which they become complete (header and announced body).
/// Without a canned answer the connection just waits for send() and close().
class ScriptedHttpServer : public QObject
{
    Q_OBJECT
public:
    enum class Ending {
        KeepOpen,
        /// An orderly end of the stream.
        Close,
        /// The connection breaks off.
        Reset,
    };

    struct Request
    {
        /// Everything that arrived, header and body, unchanged.
        QByteArray bytes;
        bool disconnected = false;

        QByteArray startLine() const;
        QByteArray body() const;
        /// Names in the order in which they came.
        QList<QByteArray> headerNames() const;
        QByteArray header(const QByteArray &name) const;
    };

    explicit ScriptedHttpServer(QObject *parent = nullptr);
    ~ScriptedHttpServer() override;

    QString baseUrl() const;
    int connectionCount() const { return m_connections; }
    const QList<Request> &requests() const { return m_requests; }

    /// Every later request gets these bytes at once.
    void answerWith(const QByteArray &bytes, Ending ending);
    void send(int request, const QByteArray &bytes);
    void end(int request, Ending ending);

    /// A complete answer with its length.
    static QByteArray answer(int status, const QByteArray &body,
                             const QByteArray &extraHeaders = {});
    /// Header of an answer whose body ends with the connection.
    static QByteArray streamHeader();

Q_SIGNALS:
    void requestArrived(int request);
    void clientLeft(int request);

private:
    void accept();
    void read(QTcpSocket *socket, const std::shared_ptr<QByteArray> &pending);

    QTcpServer m_server;
    int m_connections = 0;
    QList<Request> m_requests;
    QList<QTcpSocket *> m_sockets;
    QByteArray m_answer;
    Ending m_ending = Ending::KeepOpen;
};

} // namespace quellora
