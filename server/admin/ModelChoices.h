#pragma once

#include "config/Config.h"
#include "store/StoredSettings.h"

#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

/// Which models are offered and what else an administrator has set, in force at this moment: what
/// is stored comes before the configuration file.
struct ModelChoices
{
    /// Never empty: when all models are hidden, none is.
    std::vector<ModelSettings> offered;
    std::string defaultModel;
    std::string defaultPrompt;

    bool offers(const std::string &id) const;
};

/// Whether the apps are asked for their log; nothing when nobody has said so.
std::optional<bool> requestedLogs(StoredSettings &settings, const ServiceSettings &service);
/// @p models is not empty; it and @p configuredDefault are those of the catalog.
ModelChoices modelChoices(StoredSettings &settings, const ServiceSettings &service,
                          const std::vector<ModelSettings> &models,
                          const std::string &configuredDefault);

} // namespace quellora::server
