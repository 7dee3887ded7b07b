#include "model/ProviderFault.h"

#include "model/Answer.h"

#include <array>

namespace quellora::server {
namespace {

constexpr const char *notAsked = "the model could not be asked";
constexpr const char *tryLater = "the model is busy; try again in a moment";

/// In the order of ProviderFault. A timeout is not retried, since it would take as long again.
constexpr std::array<FaultHandling, 13> refusals = {{
    {"refused", false, true, true, "the provider refused the request", notAsked},
    {"invalid_request", false, true, false, "the provider finds the request invalid",
     "the model cannot answer this question"},
    {"authentication", false, true, true, "the provider refused the API key", notAsked},
    {"permission", false, true, true, "the provider does not allow this with the API key",
     notAsked},
    {"billing", false, true, true, "the provider wants to be paid first", notAsked},
    {"unknown_model", false, true, true, "the provider does not know the model", notAsked},
    {"too_large", false, true, false, "the provider finds the request too large",
     "the question is too large for the model"},
    {"context_too_long", false, true, false, "the question is too long for the model",
     "the question is too long for the model"},
    // Another model is not asked to get around the first one's rules.
    {"filtered", false, false, false, "the provider refused the question's content",
     "the provider refuses this question because of its content"},
    {"rate_limited", true, true, true, "the provider limits the rate", tryLater},
    {"overloaded", true, true, true, "the provider is overloaded", tryLater},
    {"server_error", true, true, true, "the provider has a problem of its own", tryLater},
    {"timed_out", false, true, true, "the provider took too long",
     "the model did not answer in time"},
}};

/// In the order of UpstreamProblem::Kind. The reasons come with the outcome.
constexpr std::array<FaultHandling, 9> problems = {{
    {"address", false, true, true, "", notAsked},
    {"unreachable", true, true, true, "", notAsked},
    {"certificate", false, true, true, "", notAsked},
    {"silent", false, true, true, "", "the model did not answer in time"},
    {"refused", false, true, true, "", notAsked},
    {"malformed", false, true, true, "", notAsked},
    {"too_long", false, true, true, "", notAsked},
    {"interrupted", true, true, true, "", notAsked},
    {"internal", false, true, false, "", notAsked},
}};

constexpr FaultHandling busyHere = {"busy", false, true, false, "", tryLater};

} // namespace

ProviderFault faultOfStatus(int status)
{
    switch (status) {
    case 401:
        return ProviderFault::Authentication;
    case 402:
        return ProviderFault::Billing;
    case 403:
        return ProviderFault::Permission;
    case 404:
    case 410:
        return ProviderFault::UnknownModel;
    case 408:
    case 504:
    case 524:
        return ProviderFault::TimedOut;
    case 409:
        return ProviderFault::ServerError;
    case 413:
        return ProviderFault::TooLarge;
    case 429:
        return ProviderFault::RateLimited;
    case 503:
    case 529:
        return ProviderFault::Overloaded;
    default:
        break;
    }
    if (status >= 500)
        return ProviderFault::ServerError;
    return status >= 400 ? ProviderFault::InvalidRequest : ProviderFault::Other;
}

const FaultHandling &handlingOf(ProviderFault fault)
{
    return refusals.at(static_cast<std::size_t>(fault));
}

const FaultHandling &handlingOf(const AnswerOutcome &outcome)
{
    if (outcome.kind == AnswerOutcome::Kind::Overloaded)
        return busyHere;
    if (outcome.kind == AnswerOutcome::Kind::RateLimited)
        return handlingOf(ProviderFault::RateLimited);
    if (outcome.problem.kind == UpstreamProblem::Kind::Refused)
        return handlingOf(outcome.problem.fault);
    return problems.at(static_cast<std::size_t>(outcome.problem.kind));
}

std::string_view endingWords(AnswerEnding ending)
{
    switch (ending) {
    case AnswerEnding::LengthLimit:
        return "\n\n*The answer ends here: it reached the length limit.*";
    case AnswerEnding::ContextFull:
        return "\n\n*The answer ends here: question and answer no longer fit into the model.*";
    case AnswerEnding::Filtered:
        return "\n\n*The provider's filter stopped the answer here.*";
    case AnswerEnding::Declined:
        return "\n\n*The model declined to answer.*";
    case AnswerEnding::Whole:
        break;
    }
    return "";
}

} // namespace quellora::server
