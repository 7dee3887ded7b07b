#pragma once

#include <QByteArray>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <optional>

namespace quellora {

/// How a request ended.
struct HttpAnswer
{
    /// The HTTP status; 0 when the answer was not HTTP or none came.
    int status = 0;
    /// Whole, if the status is the one whose body was wanted.
    QByteArray body;
    /// The body went beyond its limit and was dropped.
    bool isTooLong = false;
    /// Why the transfer failed; nothing else counts then.
    std::optional<QString> failure;
};

/// Waits for the answer to one request and keeps it within bounds.
///
/// The body of one status is read; with every other status the answer is over when its header has
/// come. Lives on the thread of the network manager; deleting it ends the transfer.
class HttpExchange : public QObject
{
    Q_OBJECT
public:
    struct Limits
    {
        /// The status whose body is read; 0 for none.
        int bodyStatus = 0;
        qint64 bodyBytes = 0;
        /// For request and answer together, however busy the network is; 0 for no limit.
        std::chrono::milliseconds whole{0};
    };

    /// Takes over @p reply, which has just been started.
    HttpExchange(QNetworkReply *reply, Limits limits, QObject *parent);
    ~HttpExchange() override;

Q_SIGNALS:
    /// Emitted once, never from within the constructor. The exchange deletes itself afterwards.
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
