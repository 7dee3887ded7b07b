#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpServer>

#include <memory>

class QTcpSocket;

namespace quellora {

/// A TCP server on a loopback port that sends exactly the bytes specified by the test.
///
/// Requests are numbered from 0 in the order in which they become complete (header and body of the
/// announced length). Without a canned response, connections wait for send() and end().
class ScriptedHttpServer : public QObject
{
    Q_OBJECT
public:
    enum class Ending {
        KeepOpen,
        /// Orderly close.
        Close,
        /// Connection reset.
        Reset,
    };

    struct Request
    {
        /// The raw request, header and body.
        QByteArray bytes;
        bool disconnected = false;

        QByteArray startLine() const;
        QByteArray body() const;
        /// Header names in the order received.
        QList<QByteArray> headerNames() const;
        QByteArray header(const QByteArray &name) const;
    };

    explicit ScriptedHttpServer(QObject *parent = nullptr);
    ~ScriptedHttpServer() override;

    QString baseUrl() const;
    int connectionCount() const { return m_connections; }
    const QList<Request> &requests() const { return m_requests; }

    /// Sends these bytes immediately in response to every later request.
    void answerWith(const QByteArray &bytes, Ending ending);
    void send(int request, const QByteArray &bytes);
    void end(int request, Ending ending);

    /// A complete response with a Content-Length header.
    static QByteArray answer(int status, const QByteArray &body,
                             const QByteArray &extraHeaders = {});
    /// Header of an event stream response whose body is delimited by the end of the connection.
    static QByteArray streamHeader();

Q_SIGNALS:
    void requestArrived(int request);

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
