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

/// Receives the callback request of a browser sign-in on a loopback port: extracts the token,
/// responds with a small page, stops listening and reports the token.
///
/// The first request is final, whether or not it has a token. A connection that sends nothing is
/// closed after a time-out and ignored, because browsers open spare connections. Requests that
/// another web page makes the browser send are refused and ignored. Main thread.
class OAuthCallbackListener : public QObject, public BrowserSignIn
{
    Q_OBJECT
public:
    /// A further connection replaces the oldest one that has sent nothing.
    static constexpr int maxConnections = 16;

    /// @param port 0 picks a free port (for tests)
    explicit OAuthCallbackListener(quint16 port, QObject *parent = nullptr);
    OAuthCallbackListener(quint16 port, CallbackConnection::Timeouts timeouts,
                          QObject *parent = nullptr);
    ~OAuthCallbackListener() override;

    void start(std::function<void()> onReady,
               std::function<void(std::optional<QString>)> onToken) override;
    void cancel() override;

    /// The listening port; 0 when stopped.
    quint16 listeningPort() const { return m_server ? m_server->serverPort() : 0; }
    int connectionCount() const { return static_cast<int>(m_connections.size()); }

    /// The percent-decoded value, possibly empty, of the first query item "token" in the request
    /// target. Nothing without such an item or if the request is malformed.
    static std::optional<QString> tokenFrom(const QByteArray &request);
    /// Whether what has arrived of the header shows that a web page sends this, not a browser that
    /// the sign-in page has led here: a name of another host (DNS rebinding), an origin, or a
    /// request for anything but a page of its own.
    static bool isForeign(const QByteArray &request);
    /// The HTTP response sent to the browser.
    static QByteArray answer(bool hasToken);

private:
    void takeConnections();
    void drop(CallbackConnection *connection);
    void decide(CallbackConnection *connection, const QByteArray &request);
    void refuse(CallbackConnection *connection);
    void report(const std::optional<QString> &token);
    void stop();

    quint16 m_port;
    CallbackConnection::Timeouts m_timeouts;
    std::function<void(std::optional<QString>)> m_onToken;
    std::unique_ptr<QTcpServer> m_server;
    /// Connections waiting for their request, oldest first.
    QList<CallbackConnection *> m_connections;
    /// The connection that is sent the response.
    QPointer<CallbackConnection> m_answering;
};

} // namespace quellora
