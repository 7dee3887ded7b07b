#include "app/LogShipper.h"

#include "app/AppConfig.h"
#include "app/Log.h"
#include "app/WhenFinished.h"

#include <QDir>
#include <QFile>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPromise>
#include <QStringDecoder>
#include <QThreadPool>

#include <memory>
#include <utility>

namespace quellora {

namespace {

constexpr int timeoutMs = 30'000;
constexpr int accepted = 202;

void log(const QString &message)
{
    Log::event(QStringLiteral("[LogShipper] ") + message);
}

/// The whole file; empty when it cannot be read or is no UTF-8 text.
QByteArray readLog(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    QStringDecoder decode(QStringDecoder::Utf8);
    const QString text = decode(bytes);
    return decode.hasError() || text.isEmpty() ? QByteArray() : bytes;
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
    const auto promise = std::make_shared<QPromise<QByteArray>>();
    promise->start();
    whenFinished(promise->future(), this, [this, sessionToken](const QByteArray &body) {
        if (body.isEmpty()) {
            log(QStringLiteral("No log file found or empty — skipping"));
            Q_EMIT finished();
            return;
        }
        post(body, sessionToken);
    });
    QThreadPool::globalInstance()->start([promise, path = m_path] {
        promise->addResult(readLog(path));
        promise->finish();
    });
}

void LogShipper::post(const QByteArray &body, const QString &sessionToken)
{
    QNetworkRequest request(m_uploadURL);
    request.setTransferTimeout(timeoutMs);
    // The token goes to this address and no other.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setRawHeader("Authorization", "Bearer " + sessionToken.toUtf8());
    request.setRawHeader("Content-Type", "text/plain");
    request.setRawHeader("X-App-Version", AppConfig::appVersion);
    QNetworkReply *reply = m_network.post(request, body);
    connect(reply, &QNetworkReply::finished, this, [this, reply, size = body.size()] {
        reply->deleteLater();
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!status.isValid())
            log(QStringLiteral("Failed to ship logs (non-fatal): ") + reply->errorString());
        else if (status.toInt() == accepted)
            log(QStringLiteral("Logs shipped successfully (%1 bytes)").arg(size));
        else
            log(QStringLiteral("Log upload returned %1").arg(status.toInt()));
        Q_EMIT finished();
    });
}

} // namespace quellora
