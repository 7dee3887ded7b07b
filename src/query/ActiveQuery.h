#pragma once

#include "history/CaptureSession.h"
#include "query/QueryTypes.h"

#include <QDateTime>
#include <QJsonObject>
#include <QPointer>
#include <QString>
#include <QUuid>

#include <optional>

namespace quellora {

class RunningQuery;

/// One answer under way: what was asked, in which thread, and what has arrived.
struct ActiveQuery
{
    QUuid threadId;
    QString turnPrompt;
    /// What the prompt box held when the question went out.
    std::optional<QString> promptBox;
    std::optional<CaptureSession::Screenshot> screenshot;
    QString answer;
    std::optional<QString> model;
    QDateTime queryStart;
    std::optional<QDateTime> firstToken;
    qint64 promptCharacters = 0;
    bool hasImage = false;
    qint64 tokensUsedBefore = 0;
    QPointer<RunningQuery> transfer;
};

/// The telemetry record of a finished answer.
/// @param now when it was finished
/// @param usedAfter the account's usage with this answer; @p cap its allowance
QJsonObject telemetryRecord(const ActiveQuery &query, const DoneInfo &info, const QDateTime &now,
                            qint64 usedAfter, qint64 cap);

} // namespace quellora
