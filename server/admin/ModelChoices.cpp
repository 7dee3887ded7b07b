#include "admin/ModelChoices.h"

#include "admin/AdminActions.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace quellora::server {

bool ModelChoices::offers(const std::string &id) const
{
    return std::any_of(offered.begin(), offered.end(),
                       [&](const ModelSettings &model) { return model.id == id; });
}

ModelChoices modelChoices(StoredSettings &settings, const ServiceSettings &service,
                          const std::vector<ModelSettings> &models,
                          const std::string &configuredDefault)
{
    const auto stored = settings.all();
    const auto value = [&](const char *name) -> std::optional<std::string> {
        const auto found = stored.find(name);
        return found == stored.end() ? std::nullopt : std::optional(found->second);
    };
    std::set<std::string> hidden;
    std::istringstream lines(value(settingNames::hiddenModels).value_or(""));
    for (std::string line; std::getline(lines, line);)
        hidden.insert(line);

    ModelChoices choices;
    for (const ModelSettings &model : models) {
        if (!hidden.contains(model.id))
            choices.offered.push_back(model);
    }
    if (choices.offered.empty())
        choices.offered = models;
    choices.defaultModel = value(settingNames::defaultModel).value_or(configuredDefault);
    if (!choices.offers(choices.defaultModel))
        choices.defaultModel =
            choices.offers(configuredDefault) ? configuredDefault : choices.offered.front().id;
    choices.defaultPrompt = value(settingNames::defaultPrompt).value_or(service.defaultPrompt);
    return choices;
}

std::optional<bool> requestedLogs(StoredSettings &settings, const ServiceSettings &service)
{
    const auto wanted = settings.get(settingNames::requestLogs);
    return wanted ? *wanted == "true" : service.requestLogs;
}

} // namespace quellora::server
