#include "model/ModelCatalog.h"

#include "model/AnthropicClient.h"
#include "model/OfflineAnswerer.h"
#include "model/OpenAiClient.h"

namespace quellora::server {
namespace {

std::shared_ptr<ModelClient> clientFor(Provider provider, const Config &config)
{
    switch (provider) {
    case Provider::Anthropic:
        return std::make_shared<AnthropicClient>(config.anthropic, config.timing);
    case Provider::OpenAi:
        return std::make_shared<OpenAiClient>(config.openAi, config.timing);
    case Provider::Offline:
        break;
    }
    return std::make_shared<OfflineAnswerer>(config.offline);
}

} // namespace

ModelCatalog::ModelCatalog(const Config &config) : m_default(config.defaultModel)
{
    std::map<Provider, std::shared_ptr<ModelClient>> clients;
    for (const ModelSettings &model : config.models) {
        std::shared_ptr<ModelClient> &client = clients[model.provider];
        if (!client)
            client = clientFor(model.provider, config);
        m_models[model.id] = ChosenModel{client, model.upstream, model.id, false};
    }
}

ModelCatalog::ModelCatalog(const Config &config, std::shared_ptr<ModelClient> client)
    : m_default(config.defaultModel)
{
    for (const ModelSettings &model : config.models)
        m_models[model.id] = ChosenModel{client, model.upstream, model.id, false};
}

ChosenModel ModelCatalog::choose(const std::optional<std::string> &id) const
{
    const auto found = id ? m_models.find(*id) : m_models.end();
    if (found != m_models.end())
        return found->second;
    ChosenModel chosen = m_models.at(m_default);
    chosen.usedFallback = id.has_value();
    return chosen;
}

} // namespace quellora::server
