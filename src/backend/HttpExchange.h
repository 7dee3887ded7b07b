#pragma once

#include <QByteArray>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <optional>

namespace quellora {

/// Result of a request.
struct HttpAnswer
{
    /// The HTTP status; 0 without an HTTP response.
    int status = 0;
    /// The complete body, if the status is Limits::bodyStatus.
    QByteArray body;
    /// The body exceeded its limit and was dropped.
    bool isTooLong = false;
    /// Error text of a failed transfer; the other members are unset then.
    std::optional<QString> failure;
};

/// Receives the response to one request within size and time limits.
///
/// The body is read for one status only; with any other status the exchange finishes after the
/// header. Lives on the network manager's thread; deleting it aborts the transfer.
class HttpExchange : public QObject
{
    Q_OBJECT
public:
    struct Limits
    {
        /// The status whose body is read; 0 for none.
        int bodyStatus = 0;
        qint64 bodyBytes = 0;
        /// Total time for request and response; 0 for no limit.
        std::chrono::milliseconds total{0};
    };

    /// Takes ownership of @p reply, which must have just been started.
    HttpExchange(QNetworkReply *reply, Limits limits, QObject *parent);
    ~HttpExchange() override;

Q_SIGNALS:
    /// Emitted once, never from the constructor. The exchange deletes itself afterwards.
    void finished(const quellora::HttpAnswer &answer);

private:
    void readHeader();
    void readBody();
    void replyFinished();
    void fail(const QString &description);
    void finish(const HttpAnswer &answer);
    void release();
    int status() const;

    QPointer<QNetworkReply> m_reply;
    Limits m_limits;
    QByteArray m_body;
    bool m_over = false;
};

} // namespace quellora
