#include "base/JsonAccess.h"
#include "base/Text.h"
#include "config/Config.h"
#include "model/UpstreamTransfer.h"
#include "providers/OpenAiEvents.h"
#include "providers/UpstreamSettings.h"

#include <algorithm>
#include <array>
#include <functional>

namespace quellora::server {
namespace {

/// The base address without the trailing "/v1" that most servers document as part of it.
std::string withoutVersion(std::string url)
{
    while (!url.empty() && url.back() == '/')
        url.pop_back();
    if (url.size() > 3 && url.compare(url.size() - 3, 3, "/v1") == 0)
        url.resize(url.size() - 3);
    return url;
}

constexpr const char *openAiBaseUrl = "https://api.openai.com";

std::string requestBody(const ModelRequest &request, const UpstreamSettings &settings)
{
    nlohmann::json content = request.prompt;
    if (!request.jpeg.empty()) {
        content = nlohmann::json::array();
        content.push_back({{"type", "text"}, {"text", request.prompt}});
        content.push_back(
            {{"type", "image_url"},
             {"image_url", {{"url", "data:image/jpeg;base64," + base64Encoded(request.jpeg)}}}});
    }
    // The service refuses the older name for its newer models; other servers know only that one.
    const char *limit = hostOfUrl(settings.baseUrl) == hostOfUrl(openAiBaseUrl)
                            ? "max_completion_tokens"
                            : "max_tokens";
    return compactJson({{"model", request.model},
                        {limit, settings.maxOutputTokens},
                        {"stream", true},
                        {"stream_options", {{"include_usage", true}}},
                        {"messages", {{{"role", "user"}, {"content", content}}}}});
}

Headers identification(const UpstreamSettings &settings)
{
    Headers headers;
    if (!settings.apiKey.empty())
        headers.emplace_back("Authorization", "Bearer " + settings.apiKey);
    return headers;
}

AnswerSource answerSource(const UpstreamSettings &settings, const TimingSettings &timing)
{
    return [settings, timing](const ModelRequest &request) {
        return streamedAnswer({withoutVersion(settings.baseUrl), "/v1/chat/completions",
                               identification(settings), requestBody(request, settings), timing},
                              &openAiEvents);
    };
}

/// Whether a model of that name answers questions. Lists also hold models for other tasks.
bool isForQuestions(const OfferedModel &model)
{
    static constexpr std::array<std::string_view, 13> others = {
        "embed",     "whisper",   "tts",  "dall-e",  "moderation", "transcribe", "realtime",
        "gpt-image", "gpt-audio", "sora", "babbage", "davinci",    "rerank"};
    const std::string name = lowered(model.name);
    return std::none_of(others.begin(), others.end(), [&](std::string_view other) {
        return name.find(other) != std::string::npos;
    });
}

/// The file's name without folder and ending when a server names a model after its file.
std::string fileTitle(const std::string &name)
{
    static constexpr std::string_view ending = ".gguf";
    if (name.size() <= ending.size() || !lowered(name).ends_with(ending))
        return name;
    const std::size_t folder = name.find_last_of("/\\");
    const std::string file = folder == std::string::npos ? name : name.substr(folder + 1);
    return file.substr(0, file.size() - ending.size());
}

tl::expected<std::vector<OfferedModel>, UpstreamProblem>
listModels(EventLoop &loop, const UpstreamSettings &settings, const DocumentLimits &limits,
           const StopToken &stop)
{
    auto models = getDocument(loop, withoutVersion(settings.baseUrl), "/v1/models",
                              identification(settings), limits, stop)
                      .and_then([](const std::string &document) {
                          return listedModels(document, "display_name");
                      });
    if (models) {
        std::erase_if(*models, [](const OfferedModel &model) { return !isForQuestions(model); });
        for (OfferedModel &model : *models) {
            if (model.title == model.name)
                model.title = fileTitle(model.name);
        }
        std::stable_sort(models->begin(), models->end(), [](const auto &a, const auto &b) {
            return lowered(a.title) < lowered(b.title);
        });
    }
    return models;
}

std::vector<ConnectChoice> choices()
{
    return {{"openai", "OpenAI", openAiBaseUrl, true},
            {"server", "Another server"},
            {"llama.cpp", "llama.cpp", "http://127.0.0.1:8080", false, true},
            {"ollama", "Ollama", "http://127.0.0.1:11434", false, true},
            {"lm-studio", "LM Studio", "http://127.0.0.1:1234", false, true}};
}

ConfiguredProvider configure(TomlReader &table, const Environment &environment)
{
    const UpstreamSettings settings = readUpstream(table, environment, "OPENAI");
    ConfiguredProvider provider;
    provider.setupVariable = "OPENAI_BASE_URL";
    provider.setupRemark = " for a server such as llama.cpp or Ollama";
    // A key alone does not select a server: screenshots are sent only to an address that the
    // operator has named.
    if (settings.baseUrl.empty())
        provider.missing = "openai.base_url or OPENAI_BASE_URL";
    else
        provider.summary =
            settings.baseUrl + ", key " + (settings.apiKey.empty() ? "not set" : "set");
    provider.destination = hostOfUrl(settings.baseUrl);
    const std::string model = settings.model.empty() ? "default" : settings.model;
    provider.models = {{model, model, "OpenAI-compatible server"}};
    provider.offersAdditionally = !settings.model.empty();
    provider.makeAnswer = [settings](const Config &config) {
        return answerSource(settings, config.timing);
    };
    provider.connector = Connector{choices(), listModels, answerSource};
    return provider;
}

} // namespace

/// Any server that speaks the OpenAI chat format (POST /v1/chat/completions, streamed, picture as
/// a data URL): llama.cpp, Ollama, vLLM and the like.
Provider providerOpenAi()
{
    return {"openai", configure};
}

} // namespace quellora::server
