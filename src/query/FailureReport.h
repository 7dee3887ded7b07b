#pragma once

#include "query/QueryTypes.h"

#include <QString>

#include <optional>

namespace quellora {

/// Texts that describe a failed query, for the log and for the error page.
struct FailureReport
{
    QString logText;
    QString pageText;
};

/// The report of @p error; nullopt for rate limits, the cap and server messages, which are shown
/// on a card.
std::optional<FailureReport> failureReport(const QueryError &error);

} // namespace quellora
