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
    /// The provider's own count, if it sent one.
    std::optional<TokenCount> tokens;

    static AnswerOutcome failed(std::string why)
    {
        AnswerOutcome outcome;
        outcome.reason = std::move(why);
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
