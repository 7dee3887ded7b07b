#include "backend/HttpExchange.h"

#include "backend/Http.h"

#include <QTimer>

#include <utility>

namespace quellora {

HttpExchange::HttpExchange(QNetworkReply *reply, Limits limits, QObject *parent)
    : QObject(parent), m_reply(reply), m_limits(limits)
{
    http::boundUnreadData(reply);
    connect(reply, &QNetworkReply::metaDataChanged, this, &HttpExchange::readHeader);
    connect(reply, &QNetworkReply::readyRead, this, &HttpExchange::readBody);
    connect(reply, &QNetworkReply::finished, this, &HttpExchange::replyFinished);
    connect(reply, &QObject::destroyed, this,
            [this] { fail(QStringLiteral("The network connection was shut down.")); });
    if (m_limits.total.count() > 0)
        QTimer::singleShot(m_limits.total, this, [this] { fail(http::timeoutText()); });
}

HttpExchange::~HttpExchange()
{
    release();
}

int HttpExchange::status() const
{
    return m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

void HttpExchange::readHeader()
{
    if (m_over)
        return;
    const int code = status();
    if (code != 0 && code != m_limits.bodyStatus)
        finish({code, {}, false, {}});
}

void HttpExchange::readBody()
{
    readHeader();
    if (m_over)
        return;
    m_body += m_reply->read(m_limits.bodyBytes + 1 - m_body.size());
    if (m_body.size() > m_limits.bodyBytes)
        finish({status(), {}, true, {}});
}

void HttpExchange::replyFinished()
{
    while (!m_over && m_reply->bytesAvailable() > 0)
        readBody();
    if (m_over)
        return;
    if (http::isBroken(*m_reply))
        fail(http::describe(*m_reply));
    else
        finish({status(), m_body, false, {}});
}

void HttpExchange::fail(const QString &description)
{
    if (!m_over)
        finish({0, {}, false, description});
}

void HttpExchange::finish(const HttpAnswer &answer)
{
    m_over = true;
    release();
    deleteLater();
    Q_EMIT finished(answer);
}

void HttpExchange::release()
{
    QNetworkReply *reply = std::exchange(m_reply, nullptr).data();
    if (reply == nullptr)
        return;
    reply->disconnect(this);
    http::endTransfer(reply);
}

} // namespace quellora
