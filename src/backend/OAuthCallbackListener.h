#pragma once

#include "backend/BrowserSignIn.h"

#include <QObject>
#include <QTcpServer>

#include <functional>
#include <memory>
#include <optional>

class QTcpSocket;

namespace quellora {

/// Receives the one request that the browser sends back after a sign-in there, on a fixed loopback
/// port: takes the token out of it, answers with a small page, closes and hands the token on.
///
/// Reachable from this machine only. The first connection decides, whatever it sends; one that
/// sends nothing, or never finishes its first line, is given up after a while. Main thread.
class OAuthCallbackListener : public QObject, public BrowserSignIn
{
    Q_OBJECT
public:
    /// How long the browser may take to send its request once connected, in milliseconds.
    static constexpr int requestTimeoutMs = 5000;
    /// Only so much of a request is looked at.
    static constexpr qint64 maxRequestBytes = 8192;

    /// @param port 0 picks a free one (tests)
    explicit OAuthCallbackListener(quint16 port, QObject *parent = nullptr);
    ~OAuthCallbackListener() override;

    void start(std::function<void()> onReady,
               std::function<void(std::optional<QString>)> onToken) override;
    void cancel() override;

    /// The port listened on; 0 when stopped.
    quint16 listeningPort() const { return m_server ? m_server->serverPort() : 0; }

    /// The token in a request: the first query item named "token" of the request line's target,
    /// percent-decoded; empty counts. Nothing when there is none or the text is no request.
    static std::optional<QString> tokenFrom(const QByteArray &request);
    /// Header and page sent to the browser.
    static QByteArray answer(bool hasToken);

private:
    void takeConnection();
    void readRequest();
    void finish();
    void stop();

    quint16 m_port;
    std::function<void(std::optional<QString>)> m_onToken;
    std::unique_ptr<QTcpServer> m_server;
    QTcpSocket *m_connection = nullptr;
    QByteArray m_request;
};

} // namespace quellora
