#pragma once

#include "config/Config.h"
#include "model/ModelClient.h"

#include <map>
#include <memory>
#include <optional>
#include <string>

namespace quellora::server {

/// The model that answers a query.
struct ChosenModel
{
    std::shared_ptr<ModelClient> client;
    std::string upstreamName;
    std::string id;
    /// Another model was asked for, but there is none of that name.
    bool usedFallback = false;
};

/// Knows which client answers for which model. Immutable, so usable from any thread.
class ModelCatalog
{
public:
    /// Builds one client per provider that @p config lists models of.
    explicit ModelCatalog(const Config &config);
    /// For tests: every model is answered by @p client.
    ModelCatalog(const Config &config, std::shared_ptr<ModelClient> client);

    /// The model of that id; the default one when none is named or the id is unknown.
    ChosenModel choose(const std::optional<std::string> &id) const;

private:
    std::map<std::string, ChosenModel> m_models;
    std::string m_default;
};

} // namespace quellora::server
