#include "backend/Http.h"

#include <QIODevice>

#include <algorithm>
#include <cstring>
#include <utility>

namespace quellora::http {

namespace {

/// A body that can be sent once: the network classes repeat a request only when they can rewind
/// its body.
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

QNetworkRequest request(const QUrl &url, std::chrono::milliseconds silence)
{
    QNetworkRequest request(url);
    request.setTransferTimeout(static_cast<int>(silence.count()));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    // Cancelling is to close the socket, which a connection shared by several transfers would not.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
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

bool isBroken(const QNetworkReply &reply)
{
    // 0 when no answer has come.
    const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const int error = reply.error();
    switch (error) {
    case QNetworkReply::NoError:
        return false;
    case QNetworkReply::ContentReSendError:
        // The end of a body that lasts as long as its connection may pass for a reason to ask
        // again, which a body for one use makes fail.
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
    // Nobody but the transfer time-out cancels a reply that still has its listener.
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
    // Queued, because a reply does not bear being aborted within its own signals.
    QMetaObject::invokeMethod(
        reply,
        [reply] {
            reply->abort();
            reply->deleteLater();
        },
        Qt::QueuedConnection);
}

} // namespace quellora::http
