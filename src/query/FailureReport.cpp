#include "query/FailureReport.h"

namespace quellora {

std::optional<FailureReport> failureReport(const QueryError &error)
{
    switch (error.kind) {
    case QueryError::Kind::HttpError:
        return FailureReport{QStringLiteral("Proxy HTTP %1").arg(error.status),
                             QStringLiteral("Proxy request failed: HTTP %1").arg(error.status)};
    case QueryError::Kind::NetworkError:
        return FailureReport{error.message,
                             QStringLiteral("Could not reach backend proxy: ") + error.message};
    case QueryError::Kind::StreamEndedUnexpectedly:
        return FailureReport{QStringLiteral("Stream ended without a done event"),
                             QStringLiteral("Stream ended unexpectedly")};
    case QueryError::Kind::Transport:
        return FailureReport{QStringLiteral("Unexpected query error: ") + error.message,
                             error.message};
    case QueryError::Kind::RateLimited:
    case QueryError::Kind::CapExceeded:
    case QueryError::Kind::ServerMessage:
        break;
    }
    return std::nullopt;
}

} // namespace quellora
