#include "providers/OpenAiEvents.h"

#include "base/JsonAccess.h"
#include "base/Text.h"

#include <map>
#include <string>
#include <utility>

namespace quellora::server {
namespace {

/// The error codes and types that the service and servers like it document. A code says more than
/// a type.
std::optional<ProviderFault> faultOfName(const std::string &name)
{
    static const std::map<std::string, ProviderFault> names = {
        {"invalid_api_key", ProviderFault::Authentication},
        {"authentication_error", ProviderFault::Authentication},
        {"permission_error", ProviderFault::Permission},
        {"insufficient_permissions", ProviderFault::Permission},
        {"unsupported_country_region_territory", ProviderFault::Permission},
        {"insufficient_quota", ProviderFault::Billing},
        {"credit_balance_exhausted", ProviderFault::Billing},
        {"organization_spend_limit_exceeded", ProviderFault::Billing},
        {"project_spend_limit_exceeded", ProviderFault::Billing},
        {"organization_usage_limit_exceeded", ProviderFault::Billing},
        {"billing_hard_limit_reached", ProviderFault::Billing},
        {"billing_not_active", ProviderFault::Billing},
        {"model_not_found", ProviderFault::UnknownModel},
        {"not_found_error", ProviderFault::UnknownModel},
        {"context_length_exceeded", ProviderFault::ContextTooLong},
        {"exceed_context_size_error", ProviderFault::ContextTooLong},
        {"string_above_max_length", ProviderFault::ContextTooLong},
        {"content_filter", ProviderFault::Filtered},
        {"content_policy_violation", ProviderFault::Filtered},
        {"rate_limit_exceeded", ProviderFault::RateLimited},
        {"rate_limit_error", ProviderFault::RateLimited},
        {"slow_down", ProviderFault::RateLimited},
        {"server_is_overloaded", ProviderFault::Overloaded},
        {"service_unavailable_error", ProviderFault::Overloaded},
        {"unavailable_error", ProviderFault::Overloaded},
        {"server_error", ProviderFault::ServerError},
        {"internal_error", ProviderFault::ServerError},
        {"timeout", ProviderFault::TimedOut}};
    const auto found = names.find(name);
    return found == names.end() ? std::nullopt : std::optional(found->second);
}

AnswerEnding endingOf(const std::string &finishReason)
{
    if (finishReason == "length")
        return AnswerEnding::LengthLimit;
    return finishReason == "content_filter" ? AnswerEnding::Filtered : AnswerEnding::Whole;
}

/// Interprets the events of one answer.
class Reader : public AnswerEvents
{
public:
    StreamStep read(std::string_view data, const Text &sink) override
    {
        if (trimmed(data) == "[DONE]")
            return StreamStep::Finished;
        const auto event = parsedObject(data);
        if (!event || !memberOf(*event, "error").is_null())
            return StreamStep::Broken;
        takeUsage(memberOf(*event, "usage"));
        const nlohmann::json &choices = memberOf(*event, "choices");
        if (!choices.is_array() || choices.empty())
            return StreamStep::Continue;
        if (auto reason = textOf(choices.front(), "finish_reason"))
            m_finishReason = std::move(reason);
        // A model that declines says so under a name of its own.
        for (const char *key : {"content", "refusal"}) {
            const auto text = textOf(memberOf(choices.front(), "delta"), key);
            if (text && !text->empty())
                sink(*text);
        }
        return StreamStep::Continue;
    }

    std::optional<TokenCount> tokens() const override { return m_tokens; }
    /// Some servers close the stream after the finish reason without the "[DONE]" line.
    bool isWhole() const override { return m_finishReason.has_value(); }
    AnswerEnding ending() const override { return endingOf(m_finishReason.value_or("")); }
    ProviderFault faultOf(int status, std::string_view body) const override
    {
        const auto record = parsedObject(body);
        const nlohmann::json &error = record ? memberOf(*record, "error") : memberOf({}, "");
        for (const char *key : {"code", "type"}) {
            const auto name = textOf(error, key);
            if (const auto known = name ? faultOfName(*name) : std::nullopt)
                return *known;
        }
        if (status == 0 && textOf(error, "type") == "invalid_request_error")
            return ProviderFault::InvalidRequest;
        // Some servers put an HTTP status there, which is all there is inside a stream.
        const auto given = countOf(error, "code").value_or(0);
        return faultOfStatus(status == 0 ? static_cast<int>(given) : status);
    }

private:
    void takeUsage(const nlohmann::json &usage)
    {
        const auto input = countOf(usage, "prompt_tokens");
        const auto output = countOf(usage, "completion_tokens");
        if (input && output)
            m_tokens = TokenCount{*input, *output};
    }

    std::optional<TokenCount> m_tokens;
    std::optional<std::string> m_finishReason;
};

} // namespace

std::unique_ptr<AnswerEvents> openAiEvents()
{
    return std::make_unique<Reader>();
}

} // namespace quellora::server
