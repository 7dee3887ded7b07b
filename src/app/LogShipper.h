#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

namespace quellora {

class NotificationCenter;

/// Uploads the accumulated log file when the backend asks for it. Failures are logged and
/// otherwise ignored; nothing is retried, the file stays as it is. Main thread; the file is read on
/// a worker.
///
/// One upload runs at a time. Requests that come meanwhile are served by one more after it, with
/// the newest token.
class LogShipper : public QObject
{
    Q_OBJECT
public:
    /// @param uploadURL where the text goes
    /// @param path the log file, by default logFilePath()
    LogShipper(QNetworkAccessManager &network, QUrl uploadURL, QString path = logFilePath(),
               QObject *parent = nullptr);

    /// Starts an upload with the given session token and returns at once.
    void shipLogs(const QString &sessionToken);

    /// From now on, starts an upload whenever a refreshed configuration asks for one.
    /// @param sessionToken the current token; without one nothing is uploaded
    void follow(NotificationCenter &notifications,
                std::function<std::optional<QString>()> sessionToken);

    /// The file that is expected to hold the process's standard output.
    static QString logFilePath();

Q_SIGNALS:
    /// An upload has ended, one way or the other.
    void finished();

private:
    void readFile();
    void post(const QByteArray &body);
    void finish(const QString &line);

    QNetworkAccessManager &m_network;
    QUrl m_uploadURL;
    QString m_path;
    /// Of the upload under way.
    std::optional<QString> m_token;
    /// Of the one after it.
    std::optional<QString> m_nextToken;
};

} // namespace quellora
