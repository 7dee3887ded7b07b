#pragma once

#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace quellora {

/// An answer that claims to be anything but HTTP: it has no status.
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

/// Answers every request that way, without a connection.
class StatuslessNetwork : public QNetworkAccessManager
{
protected:
    QNetworkReply *createRequest(Operation, const QNetworkRequest &, QIODevice *) override
    {
        return new StatuslessReply(this);
    }
};

} // namespace quellora
