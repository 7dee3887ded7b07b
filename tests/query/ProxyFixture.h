#pragma once

#include "QueryRecorder.h"
#include "fakes/LogCapture.h"
#include "fakes/ScriptedHttpServer.h"
#include "query/ProxyQueryService.h"

#include <QNetworkAccessManager>
#include <QObject>
#include <QRegularExpression>
#include <QTcpServer>

#include <memory>

namespace quellora {

/// Creates a service, a scripted server for it and a log capture for each test.
class ProxyFixture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        // Warnings reveal misuse of the network classes. The excepted one also occurs if a transfer
        // ends while it is being cancelled, which is harmless.
        QTest::failOnWarning(QRegularExpression(
            QStringLiteral("^(?!QNetworkReplyImplPrivate::error: Internal problem)")));
        m_network = std::make_unique<QNetworkAccessManager>();
        m_server = std::make_unique<ScriptedHttpServer>();
        m_service =
            std::make_unique<ProxyQueryService>(*m_network, BackendEndpoints(m_server->baseUrl()));
        m_log = std::make_unique<LogCapture>();
    }
    void cleanup()
    {
        m_recorders.clear();
        m_service.reset();
        m_network.reset();
        m_server.reset();
        m_log.reset();
    }

protected:
    RunningQuery *start()
    {
        return m_service->query({QStringLiteral("Hi"), {}, {}, QStringLiteral("token-1")});
    }
    /// Starts a query and waits until the server has received its request.
    RunningQuery *startAndWaitForRequest()
    {
        const qsizetype before = m_server->requests().size();
        RunningQuery *query = start();
        if (!QTest::qWaitFor([&] { return m_server->requests().size() > before; }, 10'000))
            qFatal("the request did not arrive");
        return query;
    }
    /// Starts a query and waits until it has received one chunk, "a".
    RunningQuery *startStreaming(QueryRecorder *&recorder)
    {
        RunningQuery *query = startAndWaitForRequest();
        m_recorders.append(std::make_shared<QueryRecorder>(query));
        recorder = m_recorders.last().get();
        m_server->send(0, ScriptedHttpServer::streamHeader() + chunkLine("a"));
        if (!QTest::qWaitFor([&] { return recorder->events.size() == 2; }, 10'000))
            qFatal("the first chunk did not arrive");
        return query;
    }

    static QByteArray chunkLine(const QByteArray &text)
    {
        return "data: {\"type\":\"chunk\",\"text\":\"" + text + "\"}\n";
    }
    /// The URL of a port that no server listens on.
    static QString unreachableUrl()
    {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost);
        return QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort());
    }
    inline static const QByteArray doneLine = "data: {\"type\":\"done\"}\n";

    std::unique_ptr<QNetworkAccessManager> m_network;
    std::unique_ptr<ScriptedHttpServer> m_server;
    std::unique_ptr<ProxyQueryService> m_service;
    std::unique_ptr<LogCapture> m_log;

private:
    QList<std::shared_ptr<QueryRecorder>> m_recorders;
};

} // namespace quellora
