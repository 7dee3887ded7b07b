#include "query/ProxyQueryService.h"

#include "backend/Http.h"
#include "base/Log.h"
#include "query/HttpQuery.h"

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <array>
#include <string_view>
#include <utility>

namespace quellora {

namespace {

/// The response to a telemetry record is ignored; a longer one is aborted.
constexpr qint64 maxTelemetryResponseBytes = 64 * 1024;

/// Appends @p utf8 as a JSON string literal.
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
    // No early exit: a branch-free loop is faster for valid input.
    bool valid = true;
    for (const char c : text)
        valid &= allowed[static_cast<unsigned char>(c)];
    return valid;
}

QNetworkRequest makeRequest(const QUrl &url, const QByteArray &token,
                            std::chrono::milliseconds timeout)
{
    QNetworkRequest request = http::request(url, timeout);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("Authorization", "Bearer " + token);
    request.setRawHeader("X-App-Version", AppConfig::appVersion);
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
    if (!http::isHeaderValue(token)) {
        Log::event(QStringLiteral("[ProxyQueryService] Network error: ") + http::badTokenText());
        return failed(http::badTokenText());
    }
    return new HttpQuery(http::postOnce(
        m_network, makeRequest(m_endpoints.proxyQuery(), token, m_timeouts.query), body));
}

void ProxyQueryService::sendTelemetry(const QString &sessionToken, const QJsonObject &record)
{
    const auto logFailure = [](const QString &text) {
        Log::event(QStringLiteral("[OverlayWindowController] Telemetry send failed (non-fatal): ") +
                   text);
    };
    const QByteArray token = sessionToken.toUtf8();
    if (!http::isHeaderValue(token)) {
        logFailure(http::badTokenText());
        return;
    }
    // Uses a separate connection: the query's connection may be closing, and a record written to it
    // would be lost.
    auto *network = new QNetworkAccessManager(&m_network);
    QNetworkReply *reply =
        http::postOnce(*network, makeRequest(m_endpoints.telemetry(), token, m_timeouts.telemetry),
                       QJsonDocument(record).toJson(QJsonDocument::Compact));
    http::boundUnreadData(reply);
    auto *listener = new QObject(reply);
    QObject::connect(reply, &QNetworkReply::readyRead, listener,
                     [reply, network, listener, discarded = qint64{0}]() mutable {
                         discarded += reply->skip(reply->bytesAvailable());
                         if (discarded > maxTelemetryResponseBytes) {
                             reply->disconnect(listener);
                             network->deleteLater();
                         }
                     });
    QObject::connect(reply, &QNetworkReply::finished, listener, [reply, network, logFailure] {
        if (http::isBroken(*reply))
            logFailure(http::describe(*reply));
        network->deleteLater();
    });
}

} // namespace quellora
