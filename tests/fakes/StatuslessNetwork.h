#pragma once

#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace quellora {

/// A finished reply without an HTTP status code, as for a protocol other than HTTP.
class StatuslessReply : public QNetworkReply
{
public:
    explicit StatuslessReply(QObject *parent) : QNetworkReply(parent)
    {
        setFinished(true);
        QMetaObject::invokeMethod(this, &QNetworkReply::finished, Qt::QueuedConnection);
    }
    void abort() override {}

protected:
    qint64 readData(char *, qint64) override { return -1; }
};

/// Returns a StatuslessReply for every request, without a connection.
class StatuslessNetwork : public QNetworkAccessManager
{
protected:
    QNetworkReply *createRequest(Operation, const QNetworkRequest &, QIODevice *) override
    {
        return new StatuslessReply(this);
    }
};

} // namespace quellora
