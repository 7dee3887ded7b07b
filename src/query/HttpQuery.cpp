#include "query/HttpQuery.h"

#include "backend/Http.h"
#include "base/Log.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <algorithm>
#include <limits>
#include <utility>

namespace quellora {

namespace {

/// Far beyond any refusal the backend writes; a longer one does not count as a JSON object.
constexpr qint64 maxRefusalBytes = 64 * 1024;

/// An integral JSON number, or nothing.
std::optional<qint64> integerOf(const QJsonValue &value)
{
    constexpr qint64 none = std::numeric_limits<qint64>::min();
    const qint64 number = value.toInteger(none);
    return number == none ? std::nullopt : std::optional(number);
}

} // namespace

HttpQuery::HttpQuery(const QueryError &error)
{
    QMetaObject::invokeMethod(
        this,
        [this, error] {
            if (!m_over)
                finish(tl::unexpected(error));
        },
        Qt::QueuedConnection);
}

HttpQuery::HttpQuery(QNetworkReply *reply) : m_reply(reply)
{
    connect(reply, &QNetworkReply::metaDataChanged, this, &HttpQuery::readResponse);
    connect(reply, &QNetworkReply::readyRead, this, &HttpQuery::readAvailable);
    connect(reply, &QNetworkReply::finished, this, &HttpQuery::replyFinished);
    connect(reply, &QObject::destroyed, this, &HttpQuery::replyDestroyed);
}

HttpQuery::~HttpQuery()
{
    m_over = true;
    release();
}

void HttpQuery::cancel()
{
    if (std::exchange(m_over, true))
        return;
    release();
    deleteLater();
}

void HttpQuery::release()
{
    QNetworkReply *reply = std::exchange(m_reply, nullptr).data();
    if (reply == nullptr)
        return;
    reply->disconnect(this);
    http::endTransfer(reply);
}

void HttpQuery::readResponse()
{
    if (m_over || m_body != Body::Unknown)
        return;
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid())
        return;
    const int code = status.toInt();
    if (code == 200) {
        m_body = Body::Stream;
    } else if (code == 429) {
        m_body = Body::Refusal;
    } else {
        Log::event(QStringLiteral("[ProxyQueryService] Proxy request failed: HTTP %1").arg(code));
        QueryError error;
        error.kind = QueryError::Kind::HttpError;
        error.status = code;
        fail(std::move(error));
    }
}

void HttpQuery::readAvailable()
{
    // A slot may run an event loop of its own; the loop below picks up what arrived meanwhile.
    if (m_over || m_delivering || m_continuing)
        return;
    readResponse();
    if (m_over)
        return;
    if (m_body == Body::Refusal) {
        collectRefusal();
        return;
    }
    int eventsLeft = maxEventsPerTurn;
    qint64 bytesLeft = maxBytesPerTurn;
    while (m_reply && m_body == Body::Stream) {
        if (!deliverEvents(eventsLeft))
            return;
        if (eventsLeft == 0 || bytesLeft == 0) {
            continueLater();
            return;
        }
        const qint64 available = std::min(m_reply->bytesAvailable(), bytesLeft);
        if (available <= 0)
            return;
        char *room = m_parser.prepare(static_cast<std::size_t>(available));
        const qint64 got = m_reply->read(room, available);
        if (got <= 0)
            return;
        m_parser.commit(static_cast<std::size_t>(got));
        bytesLeft -= got;
    }
}

void HttpQuery::continueLater()
{
    m_continuing = true;
    // After a pause: a posted event would come again before most of what the page engine has to do,
    // and a flood would keep the page from appearing.
    QTimer::singleShot(pauseBetweenTurns, this, [this] {
        m_continuing = false;
        if (m_over)
            return;
        if (m_reply && m_reply->isFinished())
            replyFinished();
        else
            readAvailable();
    });
}

void HttpQuery::collectRefusal()
{
    m_refusal += m_reply->read(maxRefusalBytes + 1 - m_refusal.size());
    if (m_refusal.size() > maxRefusalBytes)
        finishRefusal();
}

bool HttpQuery::deliverEvents(int &left)
{
    m_delivering = true;
    while (left > 0) {
        const auto event = m_parser.next();
        if (!event)
            break;
        --left;
        const QString text =
            QString::fromUtf8(event->text.data(), static_cast<qsizetype>(event->text.size()));
        switch (event->type) {
        case StreamEvent::Type::Chunk:
            if (!deliverChunk(text))
                return false;
            break;
        case StreamEvent::Type::Done:
            finish(event->done);
            return false;
        case StreamEvent::Type::Error:
            Log::event(QStringLiteral("[ProxyQueryService] Proxy sent an error event: ") + text);
            fail({QueryError::Kind::ServerMessage, 0, {}, 0, text});
            return false;
        }
    }
    if (m_parser.isLineTooLong()) {
        const QString text = QStringLiteral("The answer contains a line longer than 16 MiB");
        Log::event(QStringLiteral("[ProxyQueryService] ERROR: ") + text);
        fail({QueryError::Kind::Transport, 0, {}, 0, text});
        return false;
    }
    m_delivering = false;
    return true;
}

bool HttpQuery::deliverChunk(const QString &text)
{
    const QPointer<HttpQuery> self(this);
    if (!std::exchange(m_firstByteSeen, true)) {
        Q_EMIT firstByte();
        if (!self || m_over)
            return false;
    }
    Q_EMIT chunk(text);
    return self && !m_over;
}

void HttpQuery::replyFinished()
{
    if (m_over)
        return;
    if (m_delivering) {
        // Within a slot's own event loop: come back afterwards.
        QMetaObject::invokeMethod(this, &HttpQuery::replyFinished, Qt::QueuedConnection);
        return;
    }
    const QPointer<HttpQuery> self(this);
    readAvailable();
    // Before all has been handed on, the next turn comes back here.
    if (!self || m_over || m_continuing)
        return;

    switch (m_body) {
    case Body::Unknown:
        if (m_reply->error() != QNetworkReply::NoError) {
            const QString text = http::describe(*m_reply);
            Log::event(QStringLiteral("[ProxyQueryService] Network error: ") + text);
            fail({QueryError::Kind::NetworkError, 0, {}, 0, text});
        } else {
            fail({QueryError::Kind::NetworkError,
                  0,
                  {},
                  0,
                  QStringLiteral("Response was not HTTP")});
        }
        break;
    case Body::Refusal:
        if (http::isBroken(*m_reply))
            fail({QueryError::Kind::Transport, 0, {}, 0, http::describe(*m_reply)});
        else
            finishRefusal();
        break;
    case Body::Stream: {
        if (http::isBroken(*m_reply)) {
            fail({QueryError::Kind::Transport, 0, {}, 0, http::describe(*m_reply)});
            return;
        }
        m_parser.finish();
        int lastLine = 1;
        if (deliverEvents(lastLine))
            fail({QueryError::Kind::StreamEndedUnexpectedly, 0, {}, 0, {}});
        break;
    }
    }
}

void HttpQuery::replyDestroyed()
{
    if (!m_over)
        fail({QueryError::Kind::NetworkError,
              0,
              {},
              0,
              QStringLiteral("The network connection was shut down.")});
}

void HttpQuery::finishRefusal()
{
    const QJsonObject object = m_refusal.size() > maxRefusalBytes
                                   ? QJsonObject()
                                   : QJsonDocument::fromJson(m_refusal).object();
    QueryError error;
    if (const auto seconds = integerOf(object.value(QLatin1String("resetInSeconds")))) {
        Log::event(QStringLiteral("[ProxyQueryService] Proxy returned 429 (rate limited) — "
                                  "reset in %1s")
                       .arg(*seconds));
        error.kind = QueryError::Kind::RateLimited;
        error.resetInSeconds = *seconds;
    } else {
        Log::event(QStringLiteral("[ProxyQueryService] Proxy returned 429 (cap exceeded)"));
        error.kind = QueryError::Kind::CapExceeded;
        error.tokensRemaining = integerOf(object.value(QLatin1String("tokensRemaining")));
    }
    fail(std::move(error));
}

void HttpQuery::fail(QueryError error)
{
    finish(tl::unexpected(std::move(error)));
}

void HttpQuery::finish(const QueryOutcome &outcome)
{
    m_over = true;
    release();
    deleteLater();
    Q_EMIT finished(outcome);
}

} // namespace quellora
