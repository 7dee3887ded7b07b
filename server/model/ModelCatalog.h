#pragma once

#include "config/Config.h"
#include "model/AnswerChain.h"
#include "store/Connections.h"

#include <map>
#include <memory>
#include <mutex>

namespace quellora::server {

/// The model that answers a query.
struct ChosenModel
{
    /// Sets the model of the request itself.
    AnswerSource answer;
    std::string id;
    /// The query named another model, which does not exist.
    bool usedFallback = false;
};

/// How the breaker of a model stands.
struct ModelStanding
{
    std::string model;
    CircuitBreaker::Standing breaker;
};

/// The models on offer: the configured ones, then the connected ones. Immutable, so usable from any
/// thread.
class ModelCatalog
{
public:
    /// Sets up each provider that @p config lists models of, and each of @p connections. Where a
    /// model is connected, the models of the provider that needs no configuration stay away.
    /// @p breakers is used here only.
    ModelCatalog(const Config &config, const std::vector<Connection> &connections,
                 CircuitBreakers &breakers);

    /// The models in the order of the app's list. Never empty; ids are unique.
    const std::vector<ModelSettings> &models() const { return m_models; }
    const std::string &defaultModel() const { return m_default; }
    /// Whether nothing but the provider that needs no configuration answers, although a model could
    /// be connected.
    bool lacksModel() const { return m_lacksModel; }

    /// Those that may be spared, in the order of models().
    std::vector<ModelStanding> standings() const;

    /// The model with that id; the default one when none is named or the id is unknown.
    ChosenModel choose(const std::optional<std::string> &id) const;

private:
    void add(ModelSettings model, AnswerSource answer, std::shared_ptr<CircuitBreaker> breaker);
    void addConfigured(const Config &config, CircuitBreakers &breakers);
    void addConnected(const Config &config, const Connection &connection,
                      CircuitBreakers &breakers);

    std::vector<ModelSettings> m_models;
    std::map<std::string, ChainLink> m_links;
    ChainLimits m_limits;
    std::string m_default;
    bool m_lacksModel = false;
};

/// The catalog in force. Thread-safe; whoever holds a catalog keeps it while another is put in
/// force.
class ModelOffers
{
public:
    /// @p config must outlive this object. Reads the stored connections; what is wrong with them is
    /// in problem().
    ModelOffers(const Config &config, ConnectionFile file);

    std::shared_ptr<const ModelCatalog> current() const;
    std::vector<Connection> connections() const;
    /// Why the stored connections could not be read; empty when they could.
    std::string problem() const;
    /// Stores @p connections and puts them in force. Nothing, or why everything stays as it was. A
    /// file that could not be read is kept under another name.
    std::optional<std::string> replace(std::vector<Connection> connections);

private:
    const Config &m_config;
    const ConnectionFile m_file;
    CircuitBreakers m_breakers;
    mutable std::mutex m_mutex;
    std::string m_problem;
    std::vector<Connection> m_connections;
    std::shared_ptr<const ModelCatalog> m_current;
};

} // namespace quellora::server
