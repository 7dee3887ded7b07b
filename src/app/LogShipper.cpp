#include "app/LogShipper.h"

#include "backend/Http.h"
#include "backend/HttpExchange.h"
#include "backend/NotificationCenter.h"
#include "base/AppConfig.h"
#include "base/Log.h"
#include "base/WhenFinished.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPromise>
#include <QStringDecoder>
#include <QThreadPool>

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

namespace quellora {

namespace {

using namespace std::chrono_literals;

constexpr auto transferTimeout = 30s;
constexpr int statusAccepted = 202;
/// Bytes decoded at a time when checking for UTF-8 text.
constexpr qsizetype decodeChunkBytes = 1024 * 1024;

/// Whether the bytes are valid UTF-8 with at least one character.
bool isText(const QByteArray &bytes)
{
    QStringDecoder decode(QStringDecoder::Utf8);
    bool isEmpty = true;
    for (qsizetype offset = 0; offset < bytes.size() && !decode.hasError();
         offset += decodeChunkBytes) {
        const QString text = decode(QByteArrayView(bytes).sliced(
            offset, std::min(decodeChunkBytes, bytes.size() - offset)));
        isEmpty = isEmpty && text.isEmpty();
    }
    return !isEmpty && !decode.hasError();
}

/// The file's content; empty if it cannot be read or is not UTF-8 text.
QByteArray readLog(const QString &path)
{
    // Reading a pipe or a device might never end.
    if (!QFileInfo(path).isFile())
        return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArray bytes = file.readAll();
    return file.error() == QFileDevice::NoError && isText(bytes) ? bytes : QByteArray();
}

} // namespace

LogShipper::LogShipper(QNetworkAccessManager &network, QUrl uploadURL, QString path,
                       QObject *parent)
    : QObject(parent)
    , m_network(network)
    , m_uploadURL(std::move(uploadURL))
    , m_path(std::move(path))
{}

QString LogShipper::logFilePath()
{
    static const QString path =
        QDir::homePath() + QStringLiteral("/Library/Logs/Vantiro/pipeline.log");
    return path;
}

void LogShipper::shipLogs(const QString &sessionToken)
{
    if (m_token) {
        m_nextToken = sessionToken;
        return;
    }
    m_token = sessionToken;
    readFile();
}

void LogShipper::follow(NotificationCenter &notifications,
                        std::function<std::optional<QString>()> sessionToken)
{
    connect(&notifications, &NotificationCenter::configDidUpdate, this,
            [this, sessionToken = std::move(sessionToken)](const AppConfigResponse &config) {
                if (!config.requestLogs.value_or(false))
                    return;
                if (const auto token = sessionToken())
                    shipLogs(*token);
            });
}

void LogShipper::readFile()
{
    const auto promise = std::make_shared<QPromise<QByteArray>>();
    promise->start();
    whenFinished(promise->future(), this, [this](const QByteArray &body) {
        if (body.isEmpty())
            finish(QStringLiteral("No log file found or empty — skipping"));
        else
            post(body);
    });
    QThreadPool::globalInstance()->start([promise, path = m_path] {
        promise->addResult(readLog(path));
        promise->finish();
    });
}

void LogShipper::post(const QByteArray &body)
{
    const QString failurePrefix = QStringLiteral("Failed to ship logs (non-fatal): ");
    const QByteArray token = m_token->toUtf8();
    if (!http::isHeaderValue(token)) {
        finish(failurePrefix + http::badTokenText());
        return;
    }
    QNetworkRequest request = http::request(m_uploadURL, transferTimeout);
    request.setRawHeader("Authorization", "Bearer " + token);
    request.setRawHeader("Content-Type", "text/plain");
    request.setRawHeader("X-App-Version", AppConfig::appVersion);
    auto *exchange = new HttpExchange(http::postOnce(m_network, request, body), {}, this);
    connect(exchange, &HttpExchange::finished, this,
            [this, failurePrefix, size = body.size()](const HttpAnswer &answer) {
                if (answer.failure)
                    finish(failurePrefix + *answer.failure);
                else if (answer.status == 0)
                    finish(failurePrefix + QStringLiteral("Response was not HTTP"));
                else if (answer.status == statusAccepted)
                    finish(QStringLiteral("Logs shipped successfully (%1 bytes)").arg(size));
                else
                    finish(QStringLiteral("Log upload returned %1").arg(answer.status));
            });
}

void LogShipper::finish(const QString &line)
{
    Log::event(QStringLiteral("[LogShipper] ") + line);
    m_token = std::exchange(m_nextToken, std::nullopt);
    if (m_token)
        readFile();
    Q_EMIT finished();
}

} // namespace quellora
