#pragma once

#include "app/AppConfig.h"
#include "query/QueryTypes.h"

#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>

#include <functional>

namespace quellora {

/// A query under way. Delivers its signals in event order on the thread that started it, and
/// exactly one of finished() or nothing after cancel(). Deletes itself afterwards.
class RunningQuery : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Ends the transfer and closes its socket; no signal follows.
    virtual void cancel() = 0;

Q_SIGNALS:
    /// Immediately before the first chunk, at most once.
    void firstByte();
    /// One per "chunk" event.
    void chunk(const QString &text);
    void finished(const quellora::QueryOutcome &outcome);
};

/// Client of the backend's query proxy and of its telemetry endpoint. Stateless; any number of
/// queries may run at once.
class ProxyQueryService
{
public:
    ProxyQueryService(QNetworkAccessManager &network, BackendEndpoints endpoints);
    virtual ~ProxyQueryService() = default;

    /// Posts the query and streams its answer. Never emits before returning.
    virtual RunningQuery *query(const QueryRequest &request);
    /// Posts one telemetry record; the answer is ignored, a failure is logged (non-fatal).
    virtual void sendTelemetry(const QString &sessionToken, const QJsonObject &record);

    /// The request body: keys "prompt", then "imageBase64" and "model" when present, compact JSON.
    static QByteArray encodeBody(const QueryRequest &request);

private:
    QNetworkAccessManager &m_network;
    BackendEndpoints m_endpoints;
};

} // namespace quellora
