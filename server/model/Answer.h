#pragma once

#include "base/Stop.h"
#include "store/UsageLedger.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quellora::server {

/// One question for a model.
struct ModelRequest
{
    std::string prompt;
    /// JPEG bytes, empty when there is no picture.
    std::string jpeg;
    /// The provider's name for the model.
    std::string model;
    /// Address of the page on which whoever asks may connect a model; empty when they may not.
    std::string connectPage = {};
};

/// What went wrong between this server and a provider.
struct UpstreamProblem
{
    enum class Kind {
        /// The provider's address cannot be used.
        Address,
        /// No connection: unknown host, nothing listening, no network.
        Unreachable,
        /// The server's certificate is not trusted.
        Certificate,
        /// No word within the time allowed.
        Silent,
        /// Answered with the HTTP error `status`, or with an error inside its stream (`status` 0).
        Refused,
        /// Answered something else than what was asked for.
        Malformed,
        /// Sent more than is accepted.
        TooLong,
        /// The connection broke.
        Interrupted
    };

    Kind kind = Kind::Interrupted;
    int status = 0;
    /// The provider's own words, bounded and without control characters. Only for whoever sets the
    /// provider up: never logged.
    std::string words = {};
};

/// How an answer ended.
struct AnswerOutcome
{
    enum class Kind {
        /// The whole answer was delivered.
        Complete,
        /// The provider asks to wait for retryAfter.
        RateLimited,
        /// Refused, unreachable, malformed, interrupted or stalled; reason says which.
        Failed,
        /// Stopped by the server or the client.
        Cancelled
    };

    Kind kind = Kind::Failed;
    /// What went wrong, for the log. Contains nothing of the prompt or the answer.
    std::string reason;
    std::chrono::seconds retryAfter{0};
    /// Details of RateLimited and Failed.
    UpstreamProblem problem = {};
    /// The provider's own count, if it sent one.
    std::optional<TokenCount> tokens;

    static AnswerOutcome failed(std::string why, UpstreamProblem details = {})
    {
        AnswerOutcome outcome;
        outcome.reason = std::move(why);
        outcome.problem = std::move(details);
        return outcome;
    }
};

/// Receives pieces of answer text in order; returns false when no more is wanted.
using TextSink = std::function<bool(std::string_view text)>;

/// Answers one question. Blocks its thread until the answer has ended, may run on several threads
/// at once, and returns soon after @p stop is requested.
using AnswerFunction =
    std::function<AnswerOutcome(const ModelRequest &request, const TextSink &sink, StopToken stop)>;

} // namespace quellora::server
