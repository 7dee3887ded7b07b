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

/// State of one running query: its request, its thread and the answer received so far.
struct ActiveQuery
{
    /// Later queries have higher numbers.
    quint64 number = 0;
    QUuid threadId;
    QString turnPrompt;
    /// Content of the prompt box when the query was sent.
    std::optional<QString> promptBoxText;
    /// Whether the prompt is the content of the prompt box.
    bool isFromPromptBox = true;
    /// The turn that the answer is another version of; null for a new turn.
    QUuid replacedTurn;
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

/// The telemetry record of a completed query.
/// @param now time of completion
/// @param usedAfter the account's token usage including this query
/// @param cap the account's token allowance
QJsonObject telemetryRecord(const ActiveQuery &query, const DoneInfo &info, const QDateTime &now,
                            qint64 usedAfter, qint64 cap);

} // namespace quellora
