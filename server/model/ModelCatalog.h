#pragma once

#include "config/Config.h"
#include "model/Answer.h"

#include <map>
#include <optional>
#include <string>

namespace quellora::server {

/// The model that answers a query.
struct ChosenModel
{
    AnswerFunction answer;
    std::string upstreamName;
    std::string id;
    /// The query named another model, which does not exist.
    bool usedFallback = false;
};

/// Finds the model for a query. Immutable, so usable from any thread.
class ModelCatalog
{
public:
    /// Sets up each provider that @p config lists models of.
    explicit ModelCatalog(const Config &config);

    /// The model with that id; the default one when none is named or the id is unknown.
    ChosenModel choose(const std::optional<std::string> &id) const;

private:
    std::map<std::string, ChosenModel> m_models;
    std::string m_default;
};

} // namespace quellora::server
