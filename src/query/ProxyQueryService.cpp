#include "query/ProxyQueryService.h"

#include "app/Log.h"
#include "query/HttpQuery.h"

#include <QIODevice>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

namespace quellora {

namespace {

/// The answer to a telemetry record means nothing; no more than this is waited for.
constexpr qint64 maxTelemetryAnswerBytes = 64 * 1024;

/// Appends @p text as a JSON string literal.
void appendJsonString(QByteArray &out, const QByteArray &utf8)
{
    constexpr std::array hex{'0', '1', '2', '3', '4', '5', '6', '7',
                             '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
    out += '"';
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (byte < 0x20) {
                out += "\\u00";
                out += hex[byte >> 4];
                out += hex[byte & 15];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

bool isBase64(const QByteArray &text)
{
    static constexpr auto allowed = [] {
        std::array<bool, 256> table{};
        for (const char c : std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                             "0123456789+/="))
            table[static_cast<unsigned char>(c)] = true;
        return table;
    }();
    // Without leaving early, which is quicker for the good case.
    bool good = true;
    for (const char c : text)
        good &= allowed[static_cast<unsigned char>(c)];
    return good;
}

/// A line break in a token would add header lines of somebody else's choice.
bool isHeaderValue(const QByteArray &text)
{
    return std::all_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x20 && byte != 0x7f;
    });
}

/// A body that can be sent once. The network classes repeat a request whose connection closes
/// before an answer, but only when they can rewind its body; a query must not be asked (and
/// counted) twice.
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

QNetworkReply *post(QNetworkAccessManager &network, QNetworkRequest request,
                    const QByteArray &bytes)
{
    request.setHeader(QNetworkRequest::ContentLengthHeader, bytes.size());
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    auto *body = new SingleUseBody(bytes);
    QNetworkReply *reply = network.post(request, body);
    body->setParent(reply);
    return reply;
}

QString badTokenText()
{
    return QStringLiteral("The session token contains control characters");
}

QNetworkRequest makeRequest(const QUrl &url, const QByteArray &token,
                            std::chrono::milliseconds timeout)
{
    QNetworkRequest request(url);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("Authorization", "Bearer " + token);
    request.setRawHeader("X-App-Version", AppConfig::appVersion);
    request.setTransferTimeout(static_cast<int>(timeout.count()));
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

} // namespace

ProxyQueryService::ProxyQueryService(QNetworkAccessManager &network, BackendEndpoints endpoints)
    : ProxyQueryService(network, std::move(endpoints), Timeouts())
{}

ProxyQueryService::ProxyQueryService(QNetworkAccessManager &network, BackendEndpoints endpoints,
                                     Timeouts timeouts)
    : m_network(network), m_endpoints(std::move(endpoints)), m_timeouts(timeouts)
{}

QByteArray ProxyQueryService::encodeBody(const QueryRequest &request)
{
    if (request.imageBase64 && !isBase64(*request.imageBase64))
        return {};
    const QByteArray prompt = request.prompt.toUtf8();
    const qsizetype imageSize = request.imageBase64 ? request.imageBase64->size() : 0;
    QByteArray body;
    body.reserve(imageSize + prompt.size() + prompt.size() / 8 + 256);
    body += "{\"prompt\":";
    appendJsonString(body, prompt);
    if (request.imageBase64) {
        body += ",\"imageBase64\":\"";
        body += *request.imageBase64;
        body += '"';
    }
    if (request.model) {
        body += ",\"model\":";
        appendJsonString(body, request.model->toUtf8());
    }
    body += '}';
    return body;
}

RunningQuery *ProxyQueryService::query(const QueryRequest &request)
{
    const auto failed = [](const QString &text) {
        return new HttpQuery(QueryError{QueryError::Kind::NetworkError, 0, {}, 0, text});
    };
    const QByteArray body = encodeBody(request);
    if (body.isEmpty())
        return failed(
            QStringLiteral("Could not encode request body: the image is not base64 text"));
    const QByteArray token = request.sessionToken.toUtf8();
    if (!isHeaderValue(token)) {
        Log::event(QStringLiteral("[ProxyQueryService] Network error: ") + badTokenText());
        return failed(badTokenText());
    }
    return new HttpQuery(
        post(m_network, makeRequest(m_endpoints.proxyQuery(), token, m_timeouts.query), body));
}

void ProxyQueryService::sendTelemetry(const QString &sessionToken, const QJsonObject &record)
{
    const auto logFailure = [](const QString &text) {
        Log::event(QStringLiteral("[OverlayWindowController] Telemetry send failed (non-fatal): ") +
                   text);
    };
    const QByteArray token = sessionToken.toUtf8();
    if (!isHeaderValue(token)) {
        logFailure(badTokenText());
        return;
    }
    QNetworkReply *reply =
        post(m_network, makeRequest(m_endpoints.telemetry(), token, m_timeouts.telemetry),
             QJsonDocument(record).toJson(QJsonDocument::Compact));
    auto *listener = new QObject(reply);
    QObject::connect(reply, &QNetworkReply::readyRead, listener,
                     [reply, listener, dropped = qint64{0}]() mutable {
                         dropped += reply->skip(reply->bytesAvailable());
                         if (dropped > maxTelemetryAnswerBytes) {
                             reply->disconnect(listener);
                             HttpQuery::endTransfer(reply);
                         }
                     });
    QObject::connect(reply, &QNetworkReply::finished, listener, [reply, logFailure] {
        const bool answered = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid();
        // With an answer, errors up to 199 are the transport's; the others restate the status.
        if (reply->error() != QNetworkReply::NoError && (!answered || reply->error() < 200))
            logFailure(HttpQuery::describe(*reply));
        reply->deleteLater();
    });
}

} // namespace quellora
