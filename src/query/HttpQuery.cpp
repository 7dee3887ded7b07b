#include "query/HttpQuery.h"

#include "backend/Http.h"
#include "base/Json.h"
#include "base/Log.h"

#include <QJsonObject>
#include <QTimer>

#include <algorithm>
#include <limits>
#include <utility>

namespace quellora {

namespace {

/// Far larger than any 429 body that the backend sends; a longer body is not parsed.
constexpr qint64 maxRejectionBytes = 64 * 1024;

/// The value of an integral JSON number; otherwise nullopt.
std::optional<qint64> toInteger(const QJsonValue &value)
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
            if (!m_isFinished)
                finish(tl::unexpected(error));
        },
        Qt::QueuedConnection);
}

HttpQuery::HttpQuery(QNetworkReply *reply) : m_reply(reply)
{
    http::boundUnreadData(reply);
    connect(reply, &QNetworkReply::metaDataChanged, this, &HttpQuery::readResponse);
    connect(reply, &QNetworkReply::readyRead, this, &HttpQuery::readAvailable);
    connect(reply, &QNetworkReply::finished, this, &HttpQuery::replyFinished);
    connect(reply, &QObject::destroyed, this, &HttpQuery::replyDestroyed);
}

HttpQuery::~HttpQuery()
{
    m_isFinished = true;
    release();
}

void HttpQuery::cancel()
{
    if (std::exchange(m_isFinished, true))
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
    if (m_isFinished || m_body != Body::Unknown)
        return;
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid())
        return;
    const int code = status.toInt();
    if (code == 200) {
        m_body = Body::Stream;
    } else if (code == 429) {
        m_body = Body::Rejection;
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
    // Re-entered from a slot's nested event loop: the outer call reads the new data.
    if (m_isFinished || m_delivering || m_batchScheduled)
        return;
    readResponse();
    if (m_isFinished)
        return;
    if (m_body == Body::Rejection) {
        readRejection();
        return;
    }
    int eventsLeft = maxEventsPerBatch;
    qint64 bytesLeft = maxBytesPerBatch;
    while (m_reply && m_body == Body::Stream) {
        if (!deliverEvents(eventsLeft))
            return;
        if (eventsLeft == 0 || bytesLeft == 0) {
            scheduleNextBatch();
            return;
        }
        const qint64 available = std::min(m_reply->bytesAvailable(), bytesLeft);
        if (available <= 0)
            return;
        char *buffer = m_parser.prepare(static_cast<std::size_t>(available));
        const qint64 received = m_reply->read(buffer, available);
        if (received <= 0)
            return;
        m_parser.commit(static_cast<std::size_t>(received));
        bytesLeft -= received;
    }
}

void HttpQuery::scheduleNextBatch()
{
    m_batchScheduled = true;
    // Use a delay: a queued call would run before most pending events of the page engine, so that
    // a flood would prevent the page from rendering.
    QTimer::singleShot(delayBetweenBatches, this, [this] {
        m_batchScheduled = false;
        if (m_isFinished)
            return;
        if (m_reply && m_reply->isFinished())
            replyFinished();
        else
            readAvailable();
    });
}

void HttpQuery::readRejection()
{
    m_rejection += m_reply->read(maxRejectionBytes + 1 - m_rejection.size());
    if (m_rejection.size() > maxRejectionBytes)
        finishRejection();
}

bool HttpQuery::deliverEvents(int &budget)
{
    m_delivering = true;
    while (budget > 0) {
        const auto event = m_parser.next();
        if (!event)
            break;
        --budget;
        const QString text =
            QString::fromUtf8(event->text.data(), static_cast<qsizetype>(event->text.size()));
        switch (event->type) {
        case StreamEvent::Type::Chunk:
            m_answerBytes += static_cast<qint64>(event->text.size());
            if (m_answerBytes > maxAnswerBytes) {
                failOversized(QStringLiteral("The answer is longer than 8 MiB"));
                return false;
            }
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
        failOversized(QStringLiteral("The answer contains a line longer than 16 MiB"));
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
        if (!self || m_isFinished)
            return false;
    }
    Q_EMIT chunk(text);
    return self && !m_isFinished;
}

void HttpQuery::replyFinished()
{
    if (m_isFinished)
        return;
    if (m_delivering) {
        // Re-entered from a slot's nested event loop: retry afterwards.
        QMetaObject::invokeMethod(this, &HttpQuery::replyFinished, Qt::QueuedConnection);
        return;
    }
    const QPointer<HttpQuery> self(this);
    readAvailable();
    // If events are left, the next batch calls this function again.
    if (!self || m_isFinished || m_batchScheduled)
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
    case Body::Rejection:
        if (http::isBroken(*m_reply))
            fail({QueryError::Kind::Transport, 0, {}, 0, http::describe(*m_reply)});
        else
            finishRejection();
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
    if (!m_isFinished)
        fail({QueryError::Kind::NetworkError,
              0,
              {},
              0,
              QStringLiteral("The network connection was shut down.")});
}

void HttpQuery::finishRejection()
{
    const QJsonObject object = m_rejection.size() > maxRejectionBytes
                                   ? QJsonObject()
                                   : parseJsonObject(m_rejection).value_or(QJsonObject());
    QueryError error;
    if (const auto seconds = toInteger(object.value(QLatin1String("resetInSeconds")))) {
        Log::event(QStringLiteral("[ProxyQueryService] Proxy returned 429 (rate limited) — "
                                  "reset in %1s")
                       .arg(*seconds));
        error.kind = QueryError::Kind::RateLimited;
        error.resetInSeconds = *seconds;
    } else {
        Log::event(QStringLiteral("[ProxyQueryService] Proxy returned 429 (cap exceeded)"));
        error.kind = QueryError::Kind::CapExceeded;
        error.tokensRemaining = toInteger(object.value(QLatin1String("tokensRemaining")));
    }
    fail(std::move(error));
}

void HttpQuery::failOversized(const QString &text)
{
    Log::event(QStringLiteral("[ProxyQueryService] ERROR: ") + text);
    fail({QueryError::Kind::Transport, 0, {}, 0, text});
}

void HttpQuery::fail(QueryError error)
{
    finish(tl::unexpected(std::move(error)));
}

void HttpQuery::finish(const QueryOutcome &outcome)
{
    m_isFinished = true;
    release();
    deleteLater();
    Q_EMIT finished(outcome);
}

} // namespace quellora
