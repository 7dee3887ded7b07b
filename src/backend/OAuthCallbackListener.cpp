#include "backend/OAuthCallbackListener.h"

#include "app/Log.h"

#include <QStringDecoder>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>

#include <utility>

namespace quellora {

namespace {

void log(const QString &message)
{
    Log::event(QStringLiteral("[OAuthCallbackListener] ") + message);
}

struct PageTexts
{
    const char *title;
    const char *iconClass;
    const char *icon;
    const char *heading;
    const char *sentence;
};

constexpr PageTexts successTexts{"Signed In", "check", "&#10003;", "You're signed in",
                                 "You can close this browser tab and return to Vantiro."};
constexpr PageTexts failureTexts{"Sign-in Failed", "x", "✕", "Sign-in failed",
                                 "You can close this tab and try again in Vantiro."};

QByteArray page(const PageTexts &texts)
{
    QByteArray html = "<!DOCTYPE html>\n<html>\n<head>\n  <title>Vantiro — ";
    html += texts.title;
    html += "</title>\n  <style>\n"
            "    body { font-family: system-ui; background: #131313; color: #f0f0f0;\n"
            "           display: flex; align-items: center; justify-content: center;\n"
            "           height: 100vh; margin: 0; text-align: center; }\n"
            "    h1 { font-size: 24px; font-weight: 500; margin-bottom: 12px; }\n"
            "    p { color: #888; font-size: 14px; }\n"
            "    .";
    html += texts.iconClass;
    html += " { font-size: 48px; margin-bottom: 20px; }\n"
            "  </style>\n</head>\n<body>\n  <div>\n    <div class=\"";
    html += texts.iconClass;
    html += "\">";
    html += texts.icon;
    html += "</div>\n    <h1>";
    html += texts.heading;
    html += "</h1>\n    <p>";
    html += texts.sentence;
    html += "</p>\n  </div>\n</body>\n</html>";
    return html;
}

} // namespace

OAuthCallbackListener::OAuthCallbackListener(quint16 port, QObject *parent)
    : QObject(parent), m_port(port)
{}

OAuthCallbackListener::~OAuthCallbackListener()
{
    stop();
}

void OAuthCallbackListener::start(std::function<void()> onReady,
                                  std::function<void(std::optional<QString>)> onToken)
{
    stop();
    m_onToken = std::move(onToken);
    m_server = std::make_unique<QTcpServer>();
    // One request is all there will be.
    m_server->setMaxPendingConnections(1);
    if (!m_server->listen(QHostAddress::LocalHost, m_port)) {
        log(QStringLiteral("ERROR: Failed to create listener on port %1: %2")
                .arg(m_port)
                .arg(m_server->errorString()));
        m_server.reset();
        std::exchange(m_onToken, nullptr)(std::nullopt);
        return;
    }
    connect(m_server.get(), &QTcpServer::newConnection, this,
            &OAuthCallbackListener::takeConnection);
    connect(m_server.get(), &QTcpServer::acceptError, this, [this] {
        log(QStringLiteral("ERROR: Listener failed: ") + m_server->errorString());
        const auto report = std::exchange(m_onToken, nullptr);
        stop();
        if (report)
            report(std::nullopt);
    });
    log(QStringLiteral("Starting listener on 127.0.0.1:%1 for OAuth callback")
            .arg(listeningPort()));
    log(QStringLiteral("Listener state changed: ready"));
    onReady();
}

void OAuthCallbackListener::cancel()
{
    m_onToken = nullptr;
    stop();
}

void OAuthCallbackListener::takeConnection()
{
    if (m_connection || !m_server)
        return;
    m_connection = m_server->nextPendingConnection();
    if (!m_connection)
        return;
    // Nobody else is let in any more; the socket goes on without its server.
    m_connection->setParent(this);
    m_server->close();
    m_request.clear();
    connect(m_connection, &QTcpSocket::readyRead, this, &OAuthCallbackListener::readRequest);
    connect(m_connection, &QTcpSocket::errorOccurred, this, [this](auto error) {
        if (error != QAbstractSocket::RemoteHostClosedError)
            log(QStringLiteral("Connection error: ") + m_connection->errorString());
    });
    connect(m_connection, &QTcpSocket::disconnected, this, &OAuthCallbackListener::finish);
    QTimer::singleShot(requestTimeoutMs, m_connection, [this] { finish(); });
    readRequest();
}

void OAuthCallbackListener::readRequest()
{
    m_request += m_connection->read(maxRequestBytes - m_request.size());
    // The request line may come in pieces; nothing after it matters.
    if (m_request.contains("\r\n") || m_request.size() >= maxRequestBytes)
        finish();
}

void OAuthCallbackListener::finish()
{
    QTcpSocket *connection = std::exchange(m_connection, nullptr);
    if (!connection)
        return;
    connection->disconnect(this);
    const std::optional<QString> token = tokenFrom(m_request);
    if (connection->state() == QAbstractSocket::ConnectedState) {
        if (connection->write(answer(token.has_value())) < 0)
            log(QStringLiteral("Failed to send response: ") + connection->errorString());
        connect(connection, &QTcpSocket::disconnected, connection, &QObject::deleteLater);
        connection->disconnectFromHost();
        // A browser that never reads its page must not keep the socket.
        QTimer::singleShot(requestTimeoutMs, connection, &QTcpSocket::abort);
    } else {
        connection->deleteLater();
    }
    const auto report = std::exchange(m_onToken, nullptr);
    stop();
    if (report)
        report(token);
}

void OAuthCallbackListener::stop()
{
    if (m_connection) {
        m_connection->disconnect(this);
        m_connection->abort();
        m_connection->deleteLater();
        m_connection = nullptr;
    }
    if (m_server) {
        m_server->close();
        m_server.release()->deleteLater();
    }
    m_request.clear();
}

std::optional<QString> OAuthCallbackListener::tokenFrom(const QByteArray &request)
{
    QStringDecoder decode(QStringDecoder::Utf8);
    const QString text = decode(request);
    if (request.isEmpty() || decode.hasError())
        return std::nullopt;
    const QString line = text.section(QStringLiteral("\r\n"), 0, 0);
    const QStringList pieces = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (pieces.size() < 2)
        return std::nullopt;
    const QUrl url(QStringLiteral("http://127.0.0.1") + pieces.at(1));
    if (!url.isValid())
        return std::nullopt;
    const auto items = QUrlQuery(url).queryItems(QUrl::FullyDecoded);
    for (const auto &[name, value] : items) {
        if (name != QLatin1String("token"))
            continue;
        // An item without "=" has no value, which is not the same as an empty one.
        if (value.isNull() || (value.isEmpty() && !pieces.at(1).contains(QLatin1String("token="))))
            return std::nullopt;
        return value;
    }
    return std::nullopt;
}

QByteArray OAuthCallbackListener::answer(bool hasToken)
{
    const QByteArray body = page(hasToken ? successTexts : failureTexts);
    return "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

} // namespace quellora
