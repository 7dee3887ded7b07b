#include "overlay/OverlayConfig.h"

#include "backend/SessionManager.h"
#include "base/UserDefaults.h"
#include "panels/BottomPanelsModel.h"
#include "query/PermissionChecker.h"
#include "query/QueryOrchestrator.h"
#include "query/ServiceMessages.h"

#include <algorithm>

namespace quellora {

OverlayConfig::OverlayConfig(const Collaborators &collaborators) : m_with(collaborators)
{
    connect(&m_with.panels, &BottomPanelsModel::modelSelected, this,
            &OverlayConfig::setSelectedModel);
    if (m_with.permissions)
        connect(m_with.permissions, &PermissionChecker::pendingAdminMessageChanged, this,
                &OverlayConfig::startupMessageChanged);
}

void OverlayConfig::applyConfig(const AppConfigResponse &config)
{
    const QueryOrchestrator::Activity activity = m_with.orchestrator.activity();
    const bool isAnswering = activity == QueryOrchestrator::Activity::Waiting ||
                             activity == QueryOrchestrator::Activity::Streaming;
    using Page = ServiceMessages::OutOfCreditsPage;
    m_with.messages.updateUsage(config.tokensUsed, config.tokenCap,
                                isAnswering ? Page::Withhold : Page::Show);
    resolveModelSelection(config);
    if (config.adminMessage) {
        m_with.messages.setCurrentAdminMessage(config.adminMessage);
        return;
    }
    // A message made here speaks of a refusal that the backend's record does not know about. Where
    // nothing else is to be said, the problems found at start-up are, while they last.
    const auto &shown = m_with.messages.currentAdminMessage();
    if (!shown || !shown->id.startsWith(QLatin1String("local_")))
        m_with.messages.setCurrentAdminMessage(
            m_with.permissions ? m_with.permissions->pendingAdminMessage() : std::nullopt);
}

void OverlayConfig::resolveModelSelection(const AppConfigResponse &config)
{
    m_with.panels.setAvailableModels(config.availableModels);
    const auto isOffered = [&config](const QString &id) {
        return std::any_of(config.availableModels.begin(), config.availableModels.end(),
                           [&id](const ModelOption &model) { return model.id == id; });
    };
    // The stored choice stays stored: it counts again when the backend offers it again.
    const auto stored = m_with.defaults.stringValue(QLatin1String(DefaultsKey::selectedModelId));
    std::optional<QString> resolved;
    if (stored && isOffered(*stored))
        resolved = stored;
    else if (isOffered(config.model))
        resolved = config.model;
    m_with.orchestrator.setSelectedModelId(resolved);
    m_with.panels.setSelectedModelId(resolved.value_or(QString()));
}

void OverlayConfig::setSelectedModel(const QString &id)
{
    m_with.defaults.setString(QLatin1String(DefaultsKey::selectedModelId), id);
    m_with.orchestrator.setSelectedModelId(id);
    m_with.panels.setSelectedModelId(id);
}

void OverlayConfig::handleAppDidBecomeActive()
{
    if (m_with.permissions)
        m_with.permissions->retest();
}

void OverlayConfig::startupMessageChanged()
{
    const auto &shown = m_with.messages.currentAdminMessage();
    if (shown && shown->id != QLatin1String(PermissionChecker::messageId))
        return;
    // Beneath it the backend's own message may have waited.
    const auto &config = m_with.session.currentConfig();
    const auto &pending = m_with.permissions->pendingAdminMessage();
    m_with.messages.setCurrentAdminMessage(pending  ? pending
                                           : config ? config->adminMessage
                                                    : std::nullopt);
}

} // namespace quellora
