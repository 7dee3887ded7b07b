#include "model/ModelCatalog.h"

namespace quellora::server {

ModelCatalog::ModelCatalog(const Config &config) : m_default(config.defaultModel)
{
    for (const ConfiguredProvider &provider : config.providers) {
        AnswerFunction answer;
        for (const ModelSettings &model : config.models) {
            if (model.provider != provider.name)
                continue;
            if (!answer)
                answer = provider.makeAnswer(config);
            m_models[model.id] = ChosenModel{answer, model.upstream, model.id, false};
        }
    }
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
