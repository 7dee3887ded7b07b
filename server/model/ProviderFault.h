#pragma once

#include <string>
#include <string_view>

namespace quellora::server {

struct AnswerOutcome;

/// What a provider's refusal is about, whatever words that provider has for it.
enum class ProviderFault {
    /// None of the others, or no refusal at all.
    Other,
    /// The request has a mistake, or asks for something that this model cannot do.
    InvalidRequest,
    Authentication,
    Permission,
    /// No credit left, or a spending limit is reached. Waiting does not help.
    Billing,
    /// No such model, or not for this key.
    UnknownModel,
    /// More bytes than the provider takes.
    TooLarge,
    /// More tokens than the model takes.
    ContextTooLong,
    /// Refused for what the question contains.
    Filtered,
    RateLimited,
    Overloaded,
    /// The provider's own failure.
    ServerError,
    /// The provider gave up waiting for itself.
    TimedOut
};

/// The fault that an HTTP status stands for where the body does not say more.
ProviderFault faultOfStatus(int status);

/// What follows from a failed attempt.
struct FaultHandling
{
    /// In the log and the metrics.
    const char *name;
    /// Whether the same model may be asked again after a moment.
    bool isRetried;
    /// Whether another model is asked.
    bool fallsBack;
    /// Whether it speaks against the provider, rather than the question or this server.
    bool countsAgainst;
    /// For the log.
    const char *reason;
    /// For whoever asked the question.
    const char *forUser;
};

const FaultHandling &handlingOf(ProviderFault fault);
/// The same for whatever else can go wrong. @p outcome is not Complete.
const FaultHandling &handlingOf(const AnswerOutcome &outcome);

/// Why a model ended its answer, apart from having said everything.
enum class AnswerEnding { Whole, LengthLimit, ContextFull, Filtered, Declined };

/// What is appended to an answer that ended like that, in Markdown; empty for a whole one.
std::string_view endingWords(AnswerEnding ending);

} // namespace quellora::server
