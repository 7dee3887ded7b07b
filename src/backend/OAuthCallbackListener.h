#pragma once

#include "backend/BrowserSignIn.h"
#include "backend/CallbackConnection.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QTcpServer>

#include <functional>
#include <memory>
#include <optional>

namespace quellora {

/// Receives the one request that the browser sends back after a sign-in there, on a fixed loopback
/// port: takes the token out of it, answers with a small page, closes and hands the token on.
///
/// Reachable from this machine only. The first request decides, whatever it is. A connection that
/// sends nothing is closed after a while and does not count: browsers open spare ones. Main thread.
class OAuthCallbackListener : public QObject, public BrowserSignIn
{
    Q_OBJECT
public:
    /// More connections than these wait for nothing but room; the oldest silent one makes it.
    static constexpr int maxConnections = 16;

    /// @param port 0 picks a free one (tests)
    explicit OAuthCallbackListener(quint16 port, QObject *parent = nullptr);
    OAuthCallbackListener(quint16 port, CallbackConnection::Timeouts timeouts,
                          QObject *parent = nullptr);
    ~OAuthCallbackListener() override;

    void start(std::function<void()> onReady,
               std::function<void(std::optional<QString>)> onToken) override;
    void cancel() override;

    /// The port listened on; 0 when stopped.
    quint16 listeningPort() const { return m_server ? m_server->serverPort() : 0; }
    int connectionCount() const { return static_cast<int>(m_connections.size()); }

    /// The token in a request: the first query item named "token" of the request line's target,
    /// percent-decoded; empty counts. Nothing when there is none or the text is no request.
    static std::optional<QString> tokenFrom(const QByteArray &request);
    /// Header and page sent to the browser.
    static QByteArray answer(bool hasToken);

private:
    void takeConnections();
    void drop(CallbackConnection *connection);
    void decide(CallbackConnection *connection, const QByteArray &request);
    void report(const std::optional<QString> &token);
    void stop();

    quint16 m_port;
    CallbackConnection::Timeouts m_timeouts;
    std::function<void(std::optional<QString>)> m_onToken;
    std::unique_ptr<QTcpServer> m_server;
    /// Those whose request has not come yet, oldest first.
    QList<CallbackConnection *> m_connections;
    /// The one that decided.
    QPointer<CallbackConnection> m_answering;
};

} // namespace quellora
