#pragma once

#include "query/ProxyQueryService.h"
#include "query/StreamEventParser.h"

#include <QNetworkReply>
#include <QPointer>

#include <chrono>
#include <optional>

namespace quellora {

/// One query over HTTP: reads the reply as it arrives and classifies how it ended.
///
/// Lives on the thread of its network manager and deletes itself after finished() or cancel().
/// Any slot may cancel or delete it. A flood of events is handed on in slices, one per turn of the
/// event loop, so that the thread stays free for others.
class HttpQuery : public RunningQuery
{
    Q_OBJECT
public:
    /// What one turn of the event loop hands on or reads at most.
    static constexpr int maxEventsPerTurn = 256;
    static constexpr qint64 maxBytesPerTurn = 256 * 1024;
    /// Between two turns.
    static constexpr std::chrono::milliseconds pauseBetweenTurns{1};

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
    /// Goes on with the next turn of the event loop.
    void continueLater();
    /// Hands on complete events, at most @p left of them, which it counts down; false when the
    /// query is over or gone.
    bool deliverEvents(int &left);
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
    bool m_continuing = false;
    bool m_over = false;
};

} // namespace quellora
