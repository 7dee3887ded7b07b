#include "providers/AnthropicEvents.h"

#include "base/JsonAccess.h"

#include <map>
#include <string>
#include <utility>

namespace quellora::server {
namespace {

/// The error types that the service documents, in replies and in streams.
std::optional<ProviderFault> faultOfType(const std::string &type)
{
    static const std::map<std::string, ProviderFault> types = {
        {"invalid_request_error", ProviderFault::InvalidRequest},
        {"authentication_error", ProviderFault::Authentication},
        {"billing_error", ProviderFault::Billing},
        {"permission_error", ProviderFault::Permission},
        {"not_found_error", ProviderFault::UnknownModel},
        {"conflict_error", ProviderFault::ServerError},
        {"request_too_large", ProviderFault::TooLarge},
        {"rate_limit_error", ProviderFault::RateLimited},
        {"api_error", ProviderFault::ServerError},
        {"timeout_error", ProviderFault::TimedOut},
        {"overloaded_error", ProviderFault::Overloaded}};
    const auto found = types.find(type);
    return found == types.end() ? std::nullopt : std::optional(found->second);
}

AnswerEnding endingOf(const std::string &stopReason)
{
    if (stopReason == "max_tokens")
        return AnswerEnding::LengthLimit;
    if (stopReason == "model_context_window_exceeded")
        return AnswerEnding::ContextFull;
    return stopReason == "refusal" ? AnswerEnding::Declined : AnswerEnding::Whole;
}

/// Interprets the events of one answer.
class Reader : public AnswerEvents
{
public:
    StreamStep read(std::string_view data, const Text &text) override
    {
        const auto event = parsedObject(data);
        if (!event)
            return StreamStep::Broken;
        const std::string type = textOf(*event, "type").value_or("");
        if (type == "message_start")
            takeUsage(memberOf(memberOf(*event, "message"), "usage"));
        else if (type == "message_delta")
            takeEnd(*event);
        else if (type == "message_stop")
            return StreamStep::Finished;
        else if (type == "error")
            return StreamStep::Broken;
        else if (type == "content_block_delta")
            takeText(memberOf(*event, "delta"), text);
        return StreamStep::Continue;
    }

    std::optional<TokenCount> tokens() const override { return m_tokens; }
    bool isWhole() const override { return m_stopReason.has_value(); }
    AnswerEnding ending() const override { return endingOf(m_stopReason.value_or("")); }
    ProviderFault faultOf(int status, std::string_view body) const override
    {
        const auto record = parsedObject(body);
        const auto type = record ? textOf(memberOf(*record, "error"), "type") : std::nullopt;
        const auto known = type ? faultOfType(*type) : std::nullopt;
        // The type of a bad request also stands for statuses that say more.
        if (known && (*known != ProviderFault::InvalidRequest || status == 0))
            return *known;
        return faultOfStatus(status);
    }

private:
    static void takeText(const nlohmann::json &delta, const Text &sink)
    {
        const auto text = textOf(delta, "text");
        if (textOf(delta, "type") == "text_delta" && text && !text->empty())
            sink(*text);
    }

    void takeEnd(const nlohmann::json &event)
    {
        takeUsage(memberOf(event, "usage"));
        if (auto reason = textOf(memberOf(event, "delta"), "stop_reason"))
            m_stopReason = std::move(reason);
    }

    void takeUsage(const nlohmann::json &usage)
    {
        if (!usage.is_object())
            return;
        TokenCount count = m_tokens.value_or(TokenCount{});
        if (const auto input = countOf(usage, "input_tokens"))
            // What went through the cache is counted beside it.
            count.input = *input + countOf(usage, "cache_creation_input_tokens").value_or(0) +
                          countOf(usage, "cache_read_input_tokens").value_or(0);
        if (const auto output = countOf(usage, "output_tokens"))
            count.output = *output;
        m_tokens = count;
    }

    std::optional<TokenCount> m_tokens;
    std::optional<std::string> m_stopReason;
};

} // namespace

std::unique_ptr<AnswerEvents> anthropicEvents()
{
    return std::make_unique<Reader>();
}

} // namespace quellora::server
