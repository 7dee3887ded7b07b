#pragma once

#include "query/ProxyQueryService.h"

#include <QEventLoop>
#include <QPointer>
#include <QStringList>
#include <QTest>
#include <QTimer>

#include <optional>

namespace quellora {

/// Records the signals of one query in order.
class QueryRecorder
{
public:
    explicit QueryRecorder(RunningQuery *running) : query(running)
    {
        QObject::connect(running, &RunningQuery::firstByte, running,
                         [this] { events.append(QStringLiteral("first")); });
        QObject::connect(running, &RunningQuery::chunk, running,
                         [this](const QString &text) { events.append(text); });
        QObject::connect(running, &RunningQuery::finished, running,
                         [this](const QueryOutcome &result) {
                             events.append(QStringLiteral("finished"));
                             outcome = result;
                         });
    }
    QueryRecorder(const QueryRecorder &) = delete;
    QueryRecorder &operator=(const QueryRecorder &) = delete;

    bool waitForOutcome()
    {
        // qWaitFor() sleeps between iterations, which is too slow for large bodies.
        if (!outcome && query) {
            QEventLoop loop;
            QObject::connect(query, &QObject::destroyed, &loop, &QEventLoop::quit);
            QObject::connect(query, &RunningQuery::finished, &loop, &QEventLoop::quit);
            QTimer::singleShot(10'000, &loop, &QEventLoop::quit);
            loop.exec();
        }
        return outcome.has_value();
    }
    bool waitForDeletion()
    {
        return QTest::qWaitFor([this] { return query.isNull(); }, 10'000);
    }

    QPointer<RunningQuery> query;
    QStringList events;
    std::optional<QueryOutcome> outcome;
};

inline QueryError queryError(QueryError::Kind kind, const QString &message = {})
{
    QueryError error;
    error.kind = kind;
    error.message = message;
    return error;
}

} // namespace quellora
