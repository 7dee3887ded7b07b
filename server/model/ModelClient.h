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
    /// The provider's name of the model.
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
        /// Refused, unreachable, garbled, broken off or stalled; reason says which.
        Failed,
        /// Stopped from this side.
        Cancelled
    };

    Kind kind = Kind::Failed;
    /// For the log: what went wrong, without any of the prompt or the answer.
    std::string reason;
    std::chrono::seconds retryAfter{0};
    /// The provider's own count, when it gave one.
    std::optional<TokenCount> tokens;

    static AnswerOutcome failed(std::string why);
};

/// Takes pieces of answer text in order; answers false when no more is wanted.
using TextSink = std::function<bool(std::string_view text)>;

/// Something that answers questions. answer() blocks its thread until the answer has ended, may
/// run on several threads at once, and returns soon after @p stop is requested.
class ModelClient
{
public:
    virtual ~ModelClient() = default;
    virtual AnswerOutcome answer(const ModelRequest &request, const TextSink &sink,
                                 StopToken stop) = 0;
};

inline AnswerOutcome AnswerOutcome::failed(std::string why)
{
    AnswerOutcome outcome;
    outcome.reason = std::move(why);
    return outcome;
}

} // namespace quellora::server
