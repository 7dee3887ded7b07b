#include "overlay/OverlayConfig.h"

#include "backend/SessionManager.h"
#include "panels/ModelListModel.h"
#include "query/PermissionChecker.h"
#include "query/QueryOrchestrator.h"
#include "query/ServiceMessages.h"

namespace quellora {

OverlayConfig::OverlayConfig(const Collaborators &collaborators) : m_with(collaborators)
{
    if (m_with.permissions)
        connect(m_with.permissions, &PermissionChecker::pendingAdminMessageChanged, this,
                &OverlayConfig::startupMessageChanged);
}

void OverlayConfig::applyConfigAtStart(const AppConfigResponse &config)
{
    m_with.messages.updateUsage(config.tokensUsed, config.tokenCap);
    m_with.models.setOffer(config.availableModels, config.model);
    // A local problem keeps the user from working at all, so it takes precedence.
    const auto local =
        m_with.permissions ? m_with.permissions->pendingAdminMessage() : std::nullopt;
    m_with.messages.setCurrentAdminMessage(local ? local : config.adminMessage);
}

void OverlayConfig::applyConfig(const AppConfigResponse &config)
{
    const QueryOrchestrator::Activity activity = m_with.orchestrator.activity();
    const bool isAnswering = activity == QueryOrchestrator::Activity::Waiting ||
                             activity == QueryOrchestrator::Activity::Streaming;
    using Page = ServiceMessages::OutOfCreditsPage;
    m_with.messages.updateUsage(config.tokensUsed, config.tokenCap,
                                isAnswering ? Page::Withhold : Page::Show);
    m_with.models.setOffer(config.availableModels, config.model);
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
