#pragma once

#include "query/QueryTypes.h"

#include <QString>

#include <optional>

namespace quellora {

/// What is said of a query that failed.
struct FailureReport
{
    QString logText;
    QString pageText;
};

/// The report of @p error; nothing for the service's own states, which are told on a card.
std::optional<FailureReport> failureReport(const QueryError &error);

} // namespace quellora
