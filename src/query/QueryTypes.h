#pragma once

#include <QByteArray>
#include <QString>

#include <tl/expected.hpp>

#include <optional>

namespace quellora {

/// Fields of the done event; missing ones are 0 or false.
struct DoneInfo
{
    qint64 tokensRemaining = 0;
    bool usageWarning75 = false;
    bool usageWarning90 = false;
    bool usedFallback = false;
    qint64 tokensUsed = 0;

    bool operator==(const DoneInfo &) const = default;
};

/// Why a query failed. failureReport() has the texts shown to the user.
struct QueryError
{
    enum class Kind {
        RateLimited,
        CapExceeded,
        ServerMessage,
        HttpError,
        NetworkError,
        StreamEndedUnexpectedly,
        /// The connection failed while the response was being read.
        Transport,
    };

    Kind kind = Kind::NetworkError;
    /// Seconds, for RateLimited.
    qint64 resetInSeconds = 0;
    /// For CapExceeded, when the server sent it.
    std::optional<qint64> tokensRemaining;
    /// HTTP status, for HttpError.
    int status = 0;
    /// For ServerMessage, NetworkError and Transport.
    QString message;

    bool operator==(const QueryError &) const = default;
};

/// One request to the query proxy.
struct QueryRequest
{
    QString prompt;
    /// Standard base64 of the JPEG, without line breaks.
    std::optional<QByteArray> imageBase64;
    std::optional<QString> model;
    QString sessionToken;
};

using QueryOutcome = tl::expected<DoneInfo, QueryError>;

} // namespace quellora
