#pragma once

#include "query/ProxyQueryService.h"
#include "query/StreamEventParser.h"

#include <QNetworkReply>
#include <QPointer>

#include <optional>

namespace quellora {

/// One query over HTTP: reads the reply as it arrives and classifies how it ended.
///
/// Lives on the thread of its network manager and deletes itself after finished() or cancel().
/// Any slot may cancel or delete it.
class HttpQuery : public RunningQuery
{
    Q_OBJECT
public:
    /// A query that fails with @p error as soon as the event loop runs.
    explicit HttpQuery(const QueryError &error);
    /// Takes over @p reply, which has just been started.
    explicit HttpQuery(QNetworkReply *reply);
    ~HttpQuery() override;

    void cancel() override;

private:
    enum class Body { Unknown, Stream, Refusal };

    void readResponse();
    void readAvailable();
    void collectRefusal();
    /// Hands on complete events; false when the query is over or gone.
    bool deliverEvents();
    bool deliverChunk(const QString &text);
    void replyFinished();
    void replyDestroyed();
    void finishRefusal();
    void fail(QueryError error);
    void finish(const QueryOutcome &outcome);
    /// Ends the transfer and lets go of the reply.
    void release();

    QPointer<QNetworkReply> m_reply;
    StreamEventParser m_parser;
    QByteArray m_refusal;
    Body m_body = Body::Unknown;
    bool m_firstByteSeen = false;
    bool m_delivering = false;
    bool m_over = false;
};

} // namespace quellora
