#include "model/ModelCatalog.h"

#include "base/Log.h"
#include "providers/UpstreamSettings.h"

#include <algorithm>

namespace quellora::server {

ModelCatalog::ModelCatalog(const Config &config, const std::vector<Connection> &connections)
{
    const bool isReplaceable = config.takesConnections && config.hasOnlyFallback();
    if (!isReplaceable)
        addConfigured(config);
    if (config.takesConnections) {
        for (const Connection &connection : connections)
            addConnected(config, connection);
    }
    m_lacksModel = m_models.empty();
    if (m_lacksModel)
        addConfigured(config);
    m_default = isReplaceable && !m_lacksModel ? m_models.front().id : config.defaultModel;
}

void ModelCatalog::addConfigured(const Config &config)
{
    for (const ConfiguredProvider &provider : config.providers) {
        AnswerSource answer;
        for (const ModelSettings &model : config.models) {
            if (model.provider != provider.name)
                continue;
            if (!answer)
                answer = provider.makeAnswer(config);
            m_answers[model.id] = answer;
        }
    }
    m_models = config.models;
}

void ModelCatalog::addConnected(const Config &config, const Connection &connection)
{
    const auto provider = std::find_if(
        config.providers.begin(), config.providers.end(),
        [&](const ConfiguredProvider &known) { return known.name == connection.provider; });
    if (provider == config.providers.end() || !provider->connector) {
        Log::event("[ModelCatalog] WARNING: No provider is called \"" + connection.provider +
                   "\"; its connection is left out");
        return;
    }
    UpstreamSettings settings;
    settings.baseUrl = connection.baseUrl;
    settings.apiKey = connection.apiKey;
    const AnswerSource answer = provider->connector->makeAnswer(settings, config.timing);
    for (const ConnectedModel &model : connection.models) {
        add({model.name, model.title, connection.title, model.name, connection.provider,
             hostOfUrl(connection.baseUrl)},
            answer);
    }
}

void ModelCatalog::add(ModelSettings model, AnswerSource answer)
{
    const std::string wanted = model.id;
    for (int copy = 1; m_answers.count(model.id) > 0; ++copy)
        model.id = wanted + "@" + model.destination +
                   (copy > 1 ? std::string("#").append(std::to_string(copy)) : "");
    m_answers[model.id] = std::move(answer);
    m_models.push_back(std::move(model));
}

ChosenModel ModelCatalog::choose(const std::optional<std::string> &id) const
{
    const auto named = [this](const std::string &wanted) {
        return std::find_if(m_models.begin(), m_models.end(),
                            [&](const ModelSettings &model) { return model.id == wanted; });
    };
    const auto found = id ? named(*id) : m_models.end();
    const ModelSettings &model = found != m_models.end() ? *found : *named(m_default);
    return {m_answers.at(model.id), model.upstream, model.id, id && found == m_models.end()};
}

ModelOffers::ModelOffers(const Config &config, ConnectionFile file)
    : m_config(config), m_file(std::move(file))
{
    if (auto stored = m_file.load()) {
        m_connections = std::move(*stored);
    } else {
        m_problem = stored.error();
        Log::event("[ModelOffers] ERROR: Connected models are not available: " + m_problem);
    }
    m_current = std::make_shared<const ModelCatalog>(m_config, m_connections);
}

std::shared_ptr<const ModelCatalog> ModelOffers::current() const
{
    const std::lock_guard lock(m_mutex);
    return m_current;
}

std::vector<Connection> ModelOffers::connections() const
{
    const std::lock_guard lock(m_mutex);
    return m_connections;
}

std::string ModelOffers::problem() const
{
    const std::lock_guard lock(m_mutex);
    return m_problem;
}

std::optional<std::string> ModelOffers::replace(std::vector<Connection> connections)
{
    const std::lock_guard lock(m_mutex);
    if (!m_problem.empty()) {
        std::error_code ignored;
        std::filesystem::rename(m_file.path(), m_file.path().string() + ".unreadable", ignored);
    }
    if (const auto why = m_file.save(connections)) {
        Log::event("[ModelOffers] ERROR: " + *why);
        return why;
    }
    m_problem.clear();
    m_connections = std::move(connections);
    m_current = std::make_shared<const ModelCatalog>(m_config, m_connections);
    return std::nullopt;
}

} // namespace quellora::server
