#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

namespace quellora {

/// Uploads the accumulated log file when the backend asks for it. Failures are logged and
/// otherwise ignored; nothing is retried, the file stays as it is. Main thread; the file is read on
/// a worker.
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

    /// The file that is expected to hold the process's standard output.
    static QString logFilePath();

Q_SIGNALS:
    /// An upload has ended, one way or the other.
    void finished();

private:
    void post(const QByteArray &body, const QString &sessionToken);

    QNetworkAccessManager &m_network;
    QUrl m_uploadURL;
    QString m_path;
};

} // namespace quellora
