#include "http/AccountConfig.h"

#include "admin/ModelChoices.h"
#include "base/JsonAccess.h"

namespace quellora::server {
namespace {

nlohmann::json modelList(const std::vector<ModelSettings> &offered)
{
    nlohmann::json models = nlohmann::json::array();
    for (const ModelSettings &model : offered) {
        models.push_back({{"id", model.id},
                          {"displayName", model.displayName},
                          {"descriptor", model.descriptor}});
        if (!model.destination.empty())
            models.back()["destination"] = model.destination;
    }
    return models;
}

nlohmann::json messageRecord(const AdminMessage &message)
{
    nlohmann::json record = {{"id", message.id},
                             {"type", message.type},
                             {"headerText", message.headerText},
                             {"bodyMarkdown", message.bodyMarkdown}};
    if (message.actionLabel)
        record["actionLabel"] = *message.actionLabel;
    if (message.actionUrl)
        record["actionUrl"] = *message.actionUrl;
    if (message.forceUpdateInMinutes)
        record["forceUpdateInMinutes"] = *message.forceUpdateInMinutes;
    return record;
}

nlohmann::json configRecord(Services &services, const Account &account, bool isOwner)
{
    const auto catalog = services.models.current();
    const ServiceSettings &service = services.config.service;
    const ModelChoices choices =
        modelChoices(services.settings, service, catalog->models(), catalog->defaultModel());
    const UsageFigures figures = services.usage.figures(account);
    nlohmann::json record = {{"model", choices.defaultModel},
                             {"availableModels", modelList(choices.offered)},
                             {"defaultPrompt", choices.defaultPrompt},
                             {"minimumAppVersion", service.minimumAppVersion},
                             {"tokensUsed", figures.used},
                             {"tokensRemaining", figures.remaining},
                             {"tokenCap", figures.cap},
                             {"usageWarning75", figures.warning75},
                             {"usageWarning90", figures.warning90},
                             {"plan", account.plan},
                             {"subscriptionStatus", "active"},
                             {"heartbeatIntervalSeconds", service.heartbeatIntervalSeconds}};
    if (isOwner && catalog->lacksModel())
        record["connectModel"] = true;
    // What an administrator wrote comes before the message of the configuration file.
    const auto written = services.messages.forAccount(account.id);
    if (const auto &message = written ? written : service.adminMessage)
        record["adminMessage"] = messageRecord(*message);
    if (const auto wanted = requestedLogs(services.settings, service))
        record["requestLogs"] = *wanted;
    if (service.debugLogging)
        record["debugLogging"] = *service.debugLogging;
    return record;
}

} // namespace

std::string loginResponse(Services &services, const Account &account, const std::string &token,
                          const std::string &sessionId, bool isOwner)
{
    return compactJson({{"token", token},
                        {"sessionId", sessionId},
                        {"config", configRecord(services, account, isOwner)}});
}

} // namespace quellora::server
