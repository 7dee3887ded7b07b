#include "connect/PlainWords.h"

namespace quellora::server {
namespace {

std::string refusal(const UpstreamProblem &problem, Asked asked, bool hasKey)
{
    const std::string code =
        problem.status > 0 ? " (HTTP " + std::to_string(problem.status) + ")" : "";
    switch (problem.fault) {
    case ProviderFault::Authentication:
        return hasKey ? " does not accept the key" + code + "." : " wants a key" + code + ".";
    case ProviderFault::Permission:
        return hasKey ? " does not allow this with the key" + code + "."
                      : " does not allow this without a key" + code + ".";
    case ProviderFault::Billing:
        return " wants to be paid first" + code + ".";
    case ProviderFault::UnknownModel:
        return asked == Asked::ModelList ? " has no list of models at this address" + code + "."
                                         : " does not know this model" + code + ".";
    case ProviderFault::TimedOut:
        return " took too long" + code + ". Try again.";
    case ProviderFault::TooLarge:
        return " finds the picture too large" + code + ".";
    case ProviderFault::ContextTooLong:
        return " finds the question too long for this model" + code + ".";
    case ProviderFault::Filtered:
        return " refuses the question because of its content" + code + ".";
    case ProviderFault::RateLimited:
        return " refuses for now: too many questions, or no credit left" + code + ".";
    case ProviderFault::Overloaded:
        return " has too much to do" + code + ". Try again later.";
    case ProviderFault::ServerError:
        return " has a problem of its own" + code + ". Try again later.";
    case ProviderFault::InvalidRequest:
    case ProviderFault::Other:
        break;
    }
    if (problem.status >= 300 && problem.status < 400)
        return " points to another address" + code + ". Enter that one.";
    return problem.fault == ProviderFault::Other && problem.status == 0
               ? " refused the question."
               : " refused the request" + code + ".";
}

std::string whatHappened(const UpstreamProblem &problem, Asked asked, bool hasKey)
{
    using Kind = UpstreamProblem::Kind;
    switch (problem.kind) {
    case Kind::Address:
        return " is not a usable address.";
    case Kind::Unreachable:
        return " cannot be reached. Check the address, and whether the server runs and this "
               "machine is connected.";
    case Kind::Certificate:
        return " cannot prove who it is: its certificate is not trusted here.";
    case Kind::Silent:
        return " did not answer in time. Try again.";
    case Kind::Refused:
        return refusal(problem, asked, hasKey);
    case Kind::Malformed:
        return asked == Asked::ModelList ? " sent something that is no list of models. Check the "
                                           "address."
                                         : " sent something that is no answer.";
    case Kind::TooLong:
        return " sent more than is accepted.";
    case Kind::Internal:
        return " was not asked: this server had a problem of its own. Try again.";
    case Kind::Interrupted:
        break;
    }
    return " broke the connection off. Try again.";
}

std::string without(std::string text, const std::string &secret)
{
    if (secret.empty())
        return text;
    for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at))
        text.replace(at, secret.size(), "…");
    return text;
}

} // namespace

std::string plainWords(const UpstreamProblem &problem, Asked asked, const std::string &name,
                       const std::string &key)
{
    std::string text = name + whatHappened(problem, asked, !key.empty());
    if (const std::string words = without(problem.words, key); !words.empty())
        text += " It says: “" + words + "”";
    return text;
}

} // namespace quellora::server
