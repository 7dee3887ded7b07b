#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

namespace quellora {

class NotificationCenter;

/// Uploads the log file when the backend requests it. Failures are logged and not retried; the file
/// is never modified. Main thread only; the file is read on a thread-pool thread.
///
/// Only one upload runs at a time. Requests during an upload are combined into one subsequent
/// upload with the latest token.
class LogShipper : public QObject
{
    Q_OBJECT
public:
    /// @param uploadURL address to which the file is posted
    /// @param path log file
    LogShipper(QNetworkAccessManager &network, QUrl uploadURL, QString path = logFilePath(),
               QObject *parent = nullptr);

    /// Starts an asynchronous upload.
    void shipLogs(const QString &sessionToken);

    /// Starts an upload whenever a refreshed configuration requests one.
    /// @param sessionToken returns the current token; nullopt skips the upload
    void follow(NotificationCenter &notifications,
                std::function<std::optional<QString>()> sessionToken);

    /// The log file to which the process's standard output is expected to be redirected.
    static QString logFilePath();

Q_SIGNALS:
    /// An upload has succeeded, failed or been skipped.
    void finished();

private:
    void readFile();
    void post(const QByteArray &body);
    void finish(const QString &line);

    QNetworkAccessManager &m_network;
    QUrl m_uploadURL;
    QString m_path;
    /// Token of the running upload; nullopt when idle.
    std::optional<QString> m_token;
    /// Token of the subsequent upload, if one was requested.
    std::optional<QString> m_nextToken;
};

} // namespace quellora
