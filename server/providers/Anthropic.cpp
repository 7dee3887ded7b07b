#include "base/JsonAccess.h"
#include "base/Text.h"
#include "config/Config.h"
#include "model/UpstreamTransfer.h"
#include "providers/AnthropicEvents.h"
#include "providers/UpstreamSettings.h"

#include <functional>

namespace quellora::server {
namespace {

constexpr const char *defaultBaseUrl = "https://api.anthropic.com";

std::string requestBody(const ModelRequest &request, int maxTokens)
{
    nlohmann::json content = nlohmann::json::array();
    if (!request.jpeg.empty()) {
        content.push_back({{"type", "image"},
                           {"source",
                            {{"type", "base64"},
                             {"media_type", "image/jpeg"},
                             {"data", base64Encoded(request.jpeg)}}}});
    }
    // The service refuses empty text blocks.
    if (!trimmed(request.prompt).empty())
        content.push_back({{"type", "text"}, {"text", request.prompt}});
    return compactJson({{"model", request.model},
                        {"max_tokens", maxTokens},
                        {"stream", true},
                        {"messages", {{{"role", "user"}, {"content", content}}}}});
}

Headers identification(const UpstreamSettings &settings)
{
    return {{"x-api-key", settings.apiKey}, {"anthropic-version", "2023-06-01"}};
}

AnswerSource answerSource(const UpstreamSettings &settings, const TimingSettings &timing)
{
    return [settings, timing](const ModelRequest &request) {
        return streamedAnswer({settings.baseUrl, "/v1/messages", identification(settings),
                               requestBody(request, settings.maxOutputTokens), timing},
                              &anthropicEvents);
    };
}

tl::expected<std::vector<OfferedModel>, UpstreamProblem>
listModels(EventLoop &loop, const UpstreamSettings &settings, const DocumentLimits &limits,
           const StopToken &stop)
{
    return getDocument(loop, settings.baseUrl, "/v1/models?limit=1000", identification(settings),
                       limits, stop)
        .and_then(
            [](const std::string &document) { return listedModels(document, "display_name"); });
}

ConfiguredProvider configure(TomlReader &table, const Environment &environment)
{
    const UpstreamSettings settings = readUpstream(table, environment, "ANTHROPIC", defaultBaseUrl);
    ConfiguredProvider provider;
    provider.destination = hostOfUrl(settings.baseUrl);
    provider.setupVariable = "ANTHROPIC_API_KEY";
    if (settings.apiKey.empty())
        provider.missing = "anthropic.api_key or ANTHROPIC_API_KEY";
    else
        provider.summary = settings.baseUrl + ", key set";
    if (settings.model.empty())
        provider.models = {{"claude-sonnet-4-5", "Claude Sonnet 4.5", "Balanced"},
                           {"claude-opus-4-5", "Claude Opus 4.5", "Most capable"},
                           {"claude-haiku-4-5", "Claude Haiku 4.5", "Fastest"}};
    else
        provider.models = {{settings.model, settings.model, "Anthropic"}};
    provider.makeAnswer = [settings](const Config &config) {
        return answerSource(settings, config.timing);
    };
    provider.connector =
        Connector{{{"anthropic", "Anthropic", defaultBaseUrl, true}}, listModels, answerSource};
    return provider;
}

} // namespace

/// The Anthropic Messages API (POST /v1/messages, streamed, with picture).
Provider providerAnthropic()
{
    return {"anthropic", configure};
}

} // namespace quellora::server
