#pragma once

#include "query/ProxyQueryService.h"
#include "query/StreamEventParser.h"

#include <QNetworkReply>
#include <QPointer>

#include <chrono>
#include <optional>

namespace quellora {

/// One query over HTTP: parses the reply as it arrives and classifies its outcome.
///
/// Lives on the thread of its network manager and deletes itself after finished() or cancel().
/// Any slot may cancel or delete it. Events are delivered in batches, one batch per event loop
/// iteration, so that a flood of events does not starve the thread.
class HttpQuery : public RunningQuery
{
    Q_OBJECT
public:
    /// Maximum number of events delivered and bytes read per batch.
    static constexpr int maxEventsPerBatch = 256;
    static constexpr qint64 maxBytesPerBatch = 256 * 1024;
    /// Maximum length of an answer's text; a longer one fails. The text is held several times over,
    /// by the page too.
    static constexpr qint64 maxAnswerBytes = qint64{8} * 1024 * 1024;
    /// Delay between two batches.
    static constexpr std::chrono::milliseconds delayBetweenBatches{1};

    /// A query that fails with @p error from the event loop.
    explicit HttpQuery(const QueryError &error);
    /// Takes ownership of @p reply, which must have just been started.
    explicit HttpQuery(QNetworkReply *reply);
    ~HttpQuery() override;

    void cancel() override;

private:
    enum class Body { Unknown, Stream, Rejection };

    void readResponse();
    void readAvailable();
    void readRejection();
    /// Schedules the next batch.
    void scheduleNextBatch();
    /// Delivers up to @p budget complete events and reduces @p budget accordingly. Returns false
    /// if the query has finished or been deleted.
    bool deliverEvents(int &budget);
    bool deliverChunk(const QString &text);
    void replyFinished();
    void replyDestroyed();
    void finishRejection();
    void failOversized(const QString &text);
    void fail(QueryError error);
    void finish(const QueryOutcome &outcome);
    /// Aborts the transfer and disposes of the reply.
    void release();

    QPointer<QNetworkReply> m_reply;
    StreamEventParser m_parser;
    QByteArray m_rejection;
    qint64 m_answerBytes = 0;
    Body m_body = Body::Unknown;
    bool m_firstByteSeen = false;
    bool m_delivering = false;
    bool m_batchScheduled = false;
    bool m_isFinished = false;
};

} // namespace quellora
