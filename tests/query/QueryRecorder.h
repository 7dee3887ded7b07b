#pragma once

#include "query/ProxyQueryService.h"

#include <QCoreApplication>
#include <QPointer>
#include <QStringList>
#include <QTest>

#include <optional>

namespace quellora {

/// What one query said, in order.
class QueryRecorder
{
public:
    explicit QueryRecorder(RunningQuery *running) : query(running)
    {
        QObject::connect(running, &RunningQuery::firstByte, running,
                         [this] { said.append(QStringLiteral("first")); });
        QObject::connect(running, &RunningQuery::chunk, running,
                         [this](const QString &text) { said.append(text); });
        QObject::connect(running, &RunningQuery::finished, running,
                         [this](const QueryOutcome &result) {
                             said.append(QStringLiteral("finished"));
                             outcome = result;
                         });
    }
    QueryRecorder(const QueryRecorder &) = delete;
    QueryRecorder &operator=(const QueryRecorder &) = delete;

    bool waitForOutcome()
    {
        return QTest::qWaitFor([this] { return outcome.has_value(); }, 10'000);
    }
    bool waitForDeletion()
    {
        return QTest::qWaitFor([this] { return query.isNull(); }, 10'000);
    }

    QPointer<RunningQuery> query;
    QStringList said;
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
