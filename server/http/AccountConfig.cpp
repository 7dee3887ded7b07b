#include "http/AccountConfig.h"

#include "base/JsonAccess.h"

namespace quellora::server {
namespace {

nlohmann::json modelList(const ModelCatalog &catalog)
{
    nlohmann::json models = nlohmann::json::array();
    for (const ModelSettings &model : catalog.models()) {
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
    const UsageFigures figures = services.usage.figures(account);
    nlohmann::json record = {{"model", catalog->defaultModel()},
                             {"availableModels", modelList(*catalog)},
                             {"defaultPrompt", service.defaultPrompt},
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
    if (service.adminMessage)
        record["adminMessage"] = messageRecord(*service.adminMessage);
    if (service.requestLogs)
        record["requestLogs"] = *service.requestLogs;
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
