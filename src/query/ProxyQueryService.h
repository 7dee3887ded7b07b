#pragma once

#include "base/AppConfig.h"
#include "query/QueryTypes.h"

#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QObject>

#include <chrono>

namespace quellora {

/// A running query. Emits its signals in order on the thread that started it. Emits finished()
/// exactly once, or never after cancel(), and then deletes itself.
class RunningQuery : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Aborts the transfer and closes its socket; no signal follows.
    virtual void cancel() = 0;

Q_SIGNALS:
    /// Emitted at most once, immediately before the first chunk.
    void firstByte();
    /// Emitted once per "chunk" event.
    void chunk(const QString &text);
    void finished(const quellora::QueryOutcome &outcome);
};

/// Client of the backend's query proxy and telemetry endpoints. Stateless: any number of queries
/// may run concurrently, and they may outlive the service. Used on the network manager's thread.
///
/// The token is sent to the backend's own address only: redirects are not followed, and cookies,
/// stored credentials and credential prompts are disabled.
class ProxyQueryService
{
public:
    /// Maximum time without network activity.
    struct Timeouts
    {
        std::chrono::milliseconds query{30'000};
        std::chrono::milliseconds telemetry{5'000};
    };

    ProxyQueryService(QNetworkAccessManager &network, BackendEndpoints endpoints);
    ProxyQueryService(QNetworkAccessManager &network, BackendEndpoints endpoints,
                      Timeouts timeouts);
    virtual ~ProxyQueryService() = default;

    /// Posts the query and streams its answer. Never emits before returning. The returned object
    /// deletes itself; deleting it earlier, even from a slot connected to it, equals cancel().
    virtual RunningQuery *query(const QueryRequest &request);
    /// Posts one telemetry record. The response is ignored; failures are only logged.
    virtual void sendTelemetry(const QString &sessionToken, const QJsonObject &record);

    /// The request body: keys "prompt", then "imageBase64" and "model" when present, compact JSON.
    /// Empty if the image is not valid base64.
    static QByteArray encodeBody(const QueryRequest &request);

private:
    QNetworkAccessManager &m_network;
    BackendEndpoints m_endpoints;
    Timeouts m_timeouts;
};

} // namespace quellora
