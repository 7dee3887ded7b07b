#pragma once

#include "base/AppConfig.h"
#include "query/QueryTypes.h"

#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QObject>

#include <chrono>

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
/// queries may run at once and each outlives the service. Used on the network manager's thread.
///
/// The token travels to the backend's own address only: redirects are answers like any other
/// status, and neither cookies nor stored or asked-for credentials are used.
class ProxyQueryService
{
public:
    /// Longest wait for the next sign of life of the network.
    struct Timeouts
    {
        std::chrono::milliseconds query{30'000};
        std::chrono::milliseconds telemetry{5'000};
    };

    ProxyQueryService(QNetworkAccessManager &network, BackendEndpoints endpoints);
    ProxyQueryService(QNetworkAccessManager &network, BackendEndpoints endpoints,
                      Timeouts timeouts);
    virtual ~ProxyQueryService() = default;

    /// Posts the query and streams its answer. Never emits before returning. The result belongs to
    /// itself; deleting it, also from one of its own signals, is the same as cancel().
    virtual RunningQuery *query(const QueryRequest &request);
    /// Posts one telemetry record; the answer is ignored, a failure is logged (non-fatal).
    virtual void sendTelemetry(const QString &sessionToken, const QJsonObject &record);

    /// The request body: keys "prompt", then "imageBase64" and "model" when present, compact JSON.
    /// Empty when the image is not base64 text.
    static QByteArray encodeBody(const QueryRequest &request);

private:
    QNetworkAccessManager &m_network;
    BackendEndpoints m_endpoints;
    Timeouts m_timeouts;
};

} // namespace quellora
