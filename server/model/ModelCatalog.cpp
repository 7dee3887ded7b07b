#include "model/ModelCatalog.h"

#include "base/Log.h"
#include "providers/UpstreamSettings.h"

#include <algorithm>

namespace quellora::server {

ModelCatalog::ModelCatalog(const Config &config, const std::vector<Connection> &connections,
                           CircuitBreakers &breakers)
{
    m_limits.retries = config.limits.retries;
    m_limits.firstWait = config.timing.retry;
    m_limits.longestWait = config.timing.longestRetry;
    m_limits.answer = config.timing.answer;
    const bool isReplaceable = config.takesConnections && config.hasOnlyFallback();
    if (!isReplaceable)
        addConfigured(config, breakers);
    if (config.takesConnections) {
        for (const Connection &connection : connections)
            addConnected(config, connection, breakers);
    }
    m_lacksModel = m_models.empty();
    if (m_lacksModel)
        addConfigured(config, breakers);
    m_default = isReplaceable && !m_lacksModel ? m_models.front().id : config.defaultModel;
}

void ModelCatalog::addConfigured(const Config &config, CircuitBreakers &breakers)
{
    for (const ConfiguredProvider &provider : config.providers) {
        // The last provider is this machine.
        const bool isRemote = &provider != &config.providers.back();
        AnswerSource answer;
        for (const ModelSettings &model : config.models) {
            if (model.provider != provider.name)
                continue;
            if (!answer)
                answer = provider.makeAnswer(config);
            m_links[model.id] = {model.id, model.upstream, answer,
                                 isRemote ? breakers.of(provider.name, model.upstream) : nullptr};
        }
    }
    m_models = config.models;
}

void ModelCatalog::addConnected(const Config &config, const Connection &connection,
                                CircuitBreakers &breakers)
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
            answer, breakers.of(connection.baseUrl, model.name));
    }
}

void ModelCatalog::add(ModelSettings model, AnswerSource answer,
                       std::shared_ptr<CircuitBreaker> breaker)
{
    const std::string wanted = model.id;
    for (int copy = 1; m_links.contains(model.id); ++copy)
        model.id = wanted + "@" + model.destination +
                   (copy > 1 ? std::string("#").append(std::to_string(copy)) : "");
    m_links[model.id] = {model.id, model.upstream, std::move(answer), std::move(breaker)};
    m_models.push_back(std::move(model));
}

std::vector<ModelStanding> ModelCatalog::standings() const
{
    std::vector<ModelStanding> all;
    for (const ModelSettings &model : m_models) {
        if (const auto &breaker = m_links.at(model.id).breaker)
            all.push_back({model.id, breaker->standing()});
    }
    return all;
}

ChosenModel ModelCatalog::choose(const std::optional<std::string> &id) const
{
    const auto named = [this](const std::string &wanted) {
        return std::find_if(m_models.begin(), m_models.end(),
                            [&](const ModelSettings &model) { return model.id == wanted; });
    };
    const auto found = id ? named(*id) : m_models.end();
    const ModelSettings &model = found != m_models.end() ? *found : *named(m_default);
    std::vector<ChainLink> links = {m_links.at(model.id)};
    for (const std::string &next : model.fallback)
        links.push_back(m_links.at(next));
    return {answerChain(std::move(links), m_limits), model.id, id && found == m_models.end()};
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
    m_current = std::make_shared<const ModelCatalog>(m_config, m_connections, m_breakers);
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
    if (auto why = m_file.save(connections)) {
        Log::event("[ModelOffers] ERROR: " + *why);
        return why;
    }
    m_problem.clear();
    m_connections = std::move(connections);
    m_current = std::make_shared<const ModelCatalog>(m_config, m_connections, m_breakers);
    return std::nullopt;
}

} // namespace quellora::server
