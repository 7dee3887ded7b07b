#include "backend/Http.h"

#include <QIODevice>

#include <algorithm>
#include <cstring>
#include <utility>

namespace quellora::http {

namespace {

/// A request body that cannot be rewound, so that QNetworkAccessManager cannot resend the request.
class SingleUseBody : public QIODevice
{
public:
    explicit SingleUseBody(QByteArray bytes) : m_bytes(std::move(bytes))
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

    bool isSequential() const override { return true; }
    bool atEnd() const override { return m_position == m_bytes.size(); }
    qint64 bytesAvailable() const override
    {
        return m_bytes.size() - m_position + QIODevice::bytesAvailable();
    }
    bool reset() override { return false; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qint64 count = std::min<qint64>(maxSize, m_bytes.size() - m_position);
        if (count == 0)
            return -1;
        std::memcpy(data, m_bytes.constData() + m_position, static_cast<std::size_t>(count));
        m_position += count;
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_bytes;
    qint64 m_position = 0;
};

} // namespace

QNetworkRequest request(const QUrl &url, std::chrono::milliseconds inactivityTimeout)
{
    QNetworkRequest request(url);
    request.setTransferTimeout(static_cast<int>(inactivityTimeout.count()));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    // Aborting must close the socket; an HTTP/2 connection is shared and would stay open.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    // Turns decompression off: a small body must not grow without bounds.
    request.setRawHeader("Accept-Encoding", "identity");
    return request;
}

bool isHeaderValue(const QByteArray &value)
{
    return std::all_of(value.begin(), value.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x20 && byte != 0x7f;
    });
}

QString badTokenText()
{
    return QStringLiteral("The session token contains control characters");
}

QNetworkReply *postOnce(QNetworkAccessManager &network, QNetworkRequest request,
                        const QByteArray &body)
{
    request.setHeader(QNetworkRequest::ContentLengthHeader, body.size());
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    auto *device = new SingleUseBody(body);
    QNetworkReply *reply = network.post(request, device);
    device->setParent(reply);
    return reply;
}

void boundUnreadData(QNetworkReply *reply)
{
    // More than an answer may have: when a connection closes while Qt holds back, it sometimes
    // reports the rest as lost.
    constexpr qint64 limit = 16 * 1024 * 1024;
    // Queued: the reply ignores the size until its transfer has started in the event loop.
    QMetaObject::invokeMethod(
        reply, [reply] { reply->setReadBufferSize(limit); }, Qt::QueuedConnection);
}

bool isBroken(const QNetworkReply &reply)
{
    // 0 without a response.
    const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const int error = reply.error();
    switch (error) {
    case QNetworkReply::NoError:
        return false;
    case QNetworkReply::ContentReSendError:
        // When the closing connection delimits the body, Qt may try to resend the request, which
        // SingleUseBody prevents. The response itself is complete.
        return status == 0 || reply.hasRawHeader("Content-Length") ||
               reply.hasRawHeader("Transfer-Encoding");
    case QNetworkReply::ProxyAuthenticationRequiredError:
        return status != 407;
    default:
        break;
    }
    const bool restatesStatus = (error > 200 && error < 300) || (error > 400 && error < 500);
    return status < 400 || !restatesStatus;
}

QString describe(const QNetworkReply &reply)
{
    // The only source of this error here is the transfer time-out.
    if (reply.error() == QNetworkReply::OperationCanceledError)
        return timeoutText();
    if (reply.error() == QNetworkReply::ContentReSendError)
        return QStringLiteral("The network connection was lost.");
    return reply.errorString();
}

QString timeoutText()
{
    return QStringLiteral("The request timed out.");
}

void endTransfer(QNetworkReply *reply)
{
    // Queued: a reply must not be aborted from within its own signals.
    QMetaObject::invokeMethod(
        reply,
        [reply] {
            reply->abort();
            reply->deleteLater();
        },
        Qt::QueuedConnection);
}

} // namespace quellora::http
