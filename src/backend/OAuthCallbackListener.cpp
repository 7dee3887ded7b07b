#include "backend/OAuthCallbackListener.h"

#include "base/Log.h"

#include <QStringDecoder>
#include <QTcpSocket>
#include <QUrl>

#include <algorithm>
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

/// Percent-decoded text; nothing if the bytes are not valid UTF-8.
std::optional<QString> decoded(const QString &encoded)
{
    QStringDecoder decode(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decode(QByteArray::fromPercentEncoding(encoded.toLatin1()));
    return decode.hasError() ? std::nullopt : std::optional(text);
}

} // namespace

OAuthCallbackListener::OAuthCallbackListener(quint16 port, QObject *parent)
    : OAuthCallbackListener(port, CallbackConnection::Timeouts(), parent)
{}

OAuthCallbackListener::OAuthCallbackListener(quint16 port, CallbackConnection::Timeouts timeouts,
                                             QObject *parent)
    : QObject(parent), m_port(port), m_timeouts(timeouts)
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
    if (!m_server->listen(QHostAddress::LocalHost, m_port)) {
        log(QStringLiteral("ERROR: Failed to create listener on port %1: %2")
                .arg(m_port)
                .arg(m_server->errorString()));
        m_server.reset();
        report({});
        return;
    }
    connect(m_server.get(), &QTcpServer::newConnection, this,
            &OAuthCallbackListener::takeConnections);
    connect(m_server.get(), &QTcpServer::acceptError, this, [this] {
        log(QStringLiteral("Listener state changed: failed"));
        log(QStringLiteral("ERROR: Listener failed: ") + m_server->errorString());
        stop();
        report({});
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

void OAuthCallbackListener::takeConnections()
{
    // A request that is already complete may delete the listener.
    const QPointer self(this);
    while (self && m_server && m_server->isListening()) {
        std::unique_ptr<QTcpSocket> socket(m_server->nextPendingConnection());
        if (!socket)
            return;
        if (connectionCount() >= maxConnections) {
            const auto silent = std::find_if(m_connections.begin(), m_connections.end(),
                                             [](auto *other) { return other->isSilent(); });
            drop(silent == m_connections.end() ? m_connections.first() : *silent);
        }
        auto *connection = new CallbackConnection(std::move(socket), m_timeouts, this);
        m_connections.append(connection);
        connect(connection, &CallbackConnection::failed, this, [](const QString &description) {
            log(QStringLiteral("Connection error: ") + description);
        });
        connect(connection, &CallbackConnection::timedOut, this, [this, connection] {
            log(QStringLiteral("Connection error: no request came in time"));
            drop(connection);
        });
        connect(connection, &CallbackConnection::requestRead, this,
                [this, connection](const QByteArray &request) { decide(connection, request); });
        connection->read();
    }
}

void OAuthCallbackListener::drop(CallbackConnection *connection)
{
    m_connections.removeOne(connection);
    connection->disconnect(this);
    connection->deleteLater();
}

void OAuthCallbackListener::refuse(CallbackConnection *connection)
{
    log(QStringLiteral("WARNING: Refused a request of another web page"));
    // Counted until it is answered.
    connect(connection, &CallbackConnection::answered, this,
            [this, connection] { m_connections.removeOne(connection); });
    connection->answer(answer(false));
}

void OAuthCallbackListener::decide(CallbackConnection *connection, const QByteArray &request)
{
    if (isForeign(request)) {
        refuse(connection);
        return;
    }
    const std::optional<QString> token = tokenFrom(request);
    // All other connections are closed.
    m_connections.removeOne(connection);
    while (!m_connections.isEmpty())
        drop(m_connections.first());
    m_server->close();
    connect(connection, &CallbackConnection::answered, this, [this, token](const QString &error) {
        if (!error.isEmpty())
            log(QStringLiteral("Failed to send response: ") + error);
        stop();
        report(token);
    });
    m_answering = connection;
    connection->answer(answer(token.has_value()));
}

void OAuthCallbackListener::report(const std::optional<QString> &token)
{
    // The callback may call start() or delete the listener.
    if (const auto onToken = std::exchange(m_onToken, nullptr))
        onToken(token);
}

void OAuthCallbackListener::stop()
{
    while (!m_connections.isEmpty())
        drop(m_connections.first());
    if (CallbackConnection *answering = std::exchange(m_answering, nullptr).data())
        answering->disconnect(this);
    if (m_server) {
        m_server->close();
        // Deferred: a signal of the server may be on the stack.
        m_server.release()->deleteLater();
        log(QStringLiteral("Listener state changed: cancelled"));
    }
}

std::optional<QString> OAuthCallbackListener::tokenFrom(const QByteArray &request)
{
    QStringDecoder decode(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decode(request);
    if (request.isEmpty() || decode.hasError())
        return std::nullopt;
    const QString line = text.section(QStringLiteral("\r\n"), 0, 0);
    const QStringList pieces = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (pieces.size() < 2)
        return std::nullopt;
    const QUrl url(QStringLiteral("http://127.0.0.1") + pieces.at(1), QUrl::StrictMode);
    if (!url.isValid())
        return std::nullopt;
    const QStringList items = url.query(QUrl::FullyEncoded).split(QLatin1Char('&'));
    for (const QString &item : items) {
        const qsizetype end = item.indexOf(QLatin1Char('='));
        if (decoded(item.left(end)) != QLatin1String("token"))
            continue;
        // An item without "=" has no value, in contrast to an empty one.
        return end < 0 ? std::nullopt : decoded(item.mid(end + 1));
    }
    return std::nullopt;
}

bool OAuthCallbackListener::isForeign(const QByteArray &request)
{
    static const QList<QByteArray> ownHosts{"127.0.0.1", "localhost", "[::1]"};
    bool isOwn = true;
    for (qsizetype begin = request.indexOf("\r\n") + 2; begin >= 2 && isOwn;) {
        const qsizetype end = request.indexOf("\r\n", begin);
        // The end of the header, or a line that is not complete yet.
        if (end <= begin)
            break;
        const QByteArray line = request.mid(begin, end - begin);
        const QByteArray name = line.left(line.indexOf(':')).trimmed().toLower();
        const QByteArray value = line.mid(line.indexOf(':') + 1).trimmed().toLower();
        if (name == "host") {
            const qsizetype port = value.lastIndexOf(':');
            bool isPort = false;
            value.mid(port + 1).toUShort(&isPort);
            isOwn = ownHosts.contains(value) || (isPort && ownHosts.contains(value.left(port)));
        } else if (name == "origin") {
            isOwn = value == "null";
        } else if (name == "sec-fetch-mode") {
            isOwn = value == "navigate";
        } else if (name == "sec-fetch-dest") {
            isOwn = value == "document";
        }
        begin = end + 2;
    }
    return !isOwn;
}

QByteArray OAuthCallbackListener::answer(bool hasToken)
{
    const QByteArray body = page(hasToken ? successTexts : failureTexts);
    return "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

} // namespace quellora
