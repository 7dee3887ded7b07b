#include "model/OpenAiClient.h"

#include "base/Text.h"
#include "model/JsonAccess.h"

namespace quellora::server {
namespace {

std::string withoutVersion(std::string url)
{
    while (!url.empty() && url.back() == '/')
        url.pop_back();
    if (url.size() > 3 && url.compare(url.size() - 3, 3, "/v1") == 0)
        url.resize(url.size() - 3);
    return url;
}

std::string requestBody(const ModelRequest &request, int maxTokens)
{
    nlohmann::json content = request.prompt;
    if (!request.jpeg.empty()) {
        content = nlohmann::json::array();
        content.push_back({{"type", "text"}, {"text", request.prompt}});
        content.push_back(
            {{"type", "image_url"},
             {"image_url", {{"url", "data:image/jpeg;base64," + base64Encoded(request.jpeg)}}}});
    }
    return compactJson({{"model", request.model},
                        {"max_tokens", maxTokens},
                        {"stream", true},
                        {"stream_options", {{"include_usage", true}}},
                        {"messages", {{{"role", "user"}, {"content", content}}}}});
}

/// Reads the events of one answer.
class Reader
{
public:
    explicit Reader(const TextSink &sink) : m_sink(sink) {}

    StreamStep read(std::string_view data)
    {
        if (trimmed(data) == "[DONE]")
            return StreamStep::Finished;
        const auto event = parsedObject(data);
        if (!event || memberOf(*event, "error").is_object())
            return StreamStep::Broken;
        takeUsage(memberOf(*event, "usage"));
        const nlohmann::json &choices = memberOf(*event, "choices");
        if (!choices.is_array() || choices.empty())
            return StreamStep::Continue;
        m_finishReason = m_finishReason || memberOf(choices.front(), "finish_reason").is_string();
        const auto text = textOf(memberOf(choices.front(), "delta"), "content");
        if (!text || text->empty())
            return StreamStep::Continue;
        return m_sink(*text) ? StreamStep::Continue : StreamStep::Stopped;
    }

    std::optional<TokenCount> tokens() const { return m_tokens; }
    bool sawFinishReason() const { return m_finishReason; }

private:
    void takeUsage(const nlohmann::json &usage)
    {
        const auto input = countOf(usage, "prompt_tokens");
        const auto output = countOf(usage, "completion_tokens");
        if (input && output)
            m_tokens = TokenCount{*input, *output};
    }

    const TextSink &m_sink;
    std::optional<TokenCount> m_tokens;
    bool m_finishReason = false;
};

} // namespace

OpenAiClient::OpenAiClient(UpstreamSettings settings, TimingSettings timing)
    : m_settings(std::move(settings)), m_transfer(withoutVersion(m_settings.baseUrl), timing)
{}

AnswerOutcome OpenAiClient::answer(const ModelRequest &request, const TextSink &sink,
                                   StopToken stop)
{
    Reader reader(sink);
    UpstreamTransfer::Headers headers;
    if (!m_settings.apiKey.empty())
        headers.emplace_back("Authorization", "Bearer " + m_settings.apiKey);
    AnswerOutcome outcome = m_transfer.post(
        "/v1/chat/completions", headers, requestBody(request, m_settings.maxOutputTokens),
        [&reader](std::string_view data) { return reader.read(data); }, stop);
    // Some servers close the stream after the finish reason without the "[DONE]" line.
    if (outcome.kind == AnswerOutcome::Kind::Failed && reader.sawFinishReason())
        outcome.kind = AnswerOutcome::Kind::Complete;
    outcome.tokens = reader.tokens();
    return outcome;
}

} // namespace quellora::server
