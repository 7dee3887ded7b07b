#pragma once

#include "model/ProviderFault.h"
#include "store/UsageLedger.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quellora::server {

class EventLoop;
class WorkerPool;

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
        Interrupted,
        /// The provider was not to blame.
        Internal
    };

    Kind kind = Kind::Internal;
    int status = 0;
    /// What Refused is about.
    ProviderFault fault = ProviderFault::Other;
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
        Cancelled,
        /// Not begun, because this machine has too much to do; retryAfter says when to ask again.
        Overloaded
    };

    Kind kind = Kind::Failed;
    /// What went wrong, for the log. Contains nothing of the prompt or the answer.
    std::string reason;
    /// 0 when nobody has said how long.
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

/// An attempt at an answer that failed.
struct FailedAttempt
{
    enum class Next {
        /// The outcome is passed on.
        GiveUp,
        /// The same model is asked again.
        Retry,
        /// Another model is asked.
        Fallback
    };

    /// The id of the model.
    const std::string &model;
    const AnswerOutcome &outcome;
    Next next;
    /// Whether the model was not asked, because it has failed too often.
    bool wasSpared;
};

/// Receives one answer, on the loop that it runs on. No call comes from inside the function that
/// starts the answer, from resume() or from the answer's destructor.
class AnswerSink
{
public:
    virtual ~AnswerSink() = default;
    /// An attempt failed; answerEnds() follows only where it is given up.
    virtual void attemptFails(const FailedAttempt &) {}
    /// The model with the id @p model answers. Called once, before the first text or the end of an
    /// answer without text.
    virtual void answeredBy(const std::string & /*model*/) {}
    /// A piece of text. The answer may be paused here but not destroyed.
    virtual void answerGrows(std::string_view text) = 0;
    /// The last call; the answer may be destroyed in it.
    virtual void answerEnds(const AnswerOutcome &outcome) = 0;
};

/// An answer under way. To be used on its loop only. Its destruction cancels it, down to the
/// connection to the provider, without a further call.
class RunningAnswer
{
public:
    virtual ~RunningAnswer() = default;
    /// Asks for no more text until resume(). A few kilobytes may still come.
    virtual void pause() = 0;
    virtual void resume() = 0;
};

/// Where an answer runs.
struct AnswerPlace
{
    /// Its callbacks and connections.
    EventLoop &loop;
    /// Work that blocks.
    WorkerPool &workers;
};

/// Starts an answer on the loop of @p place, in whose thread it must be called. The sink must
/// outlive the answer. Each call is a new attempt at the same question.
using AnswerStart =
    std::function<std::unique_ptr<RunningAnswer>(AnswerSink &sink, const AnswerPlace &place)>;

/// Makes a question ready to be sent. That may take milliseconds for a large picture, so it belongs
/// on a worker. Callable from several threads at once.
using AnswerSource = std::function<AnswerStart(ModelRequest request)>;

} // namespace quellora::server
