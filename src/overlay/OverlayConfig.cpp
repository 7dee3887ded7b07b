#include "overlay/OverlayConfig.h"

#include "backend/SessionManager.h"
#include "overlay/AccountVisit.h"
#include "panels/HamburgerMenuModel.h"
#include "panels/ModelListModel.h"
#include "query/PermissionChecker.h"
#include "query/QueryOrchestrator.h"
#include "query/ServiceMessages.h"

namespace quellora {

OverlayConfig::OverlayConfig(const Collaborators &collaborators) : m_collaborators(collaborators)
{
    if (m_collaborators.permissions)
        connect(m_collaborators.permissions, &PermissionChecker::pendingAdminMessageChanged, this,
                &OverlayConfig::startupMessageChanged);
}

void OverlayConfig::applyConfigAtStart(const AppConfigResponse &config)
{
    m_collaborators.messages.updateUsage(config.tokensUsed, config.tokenCap);
    applyModels(config);
    // A local problem prevents use of the program altogether, so it takes precedence.
    const auto local = m_collaborators.permissions
                           ? m_collaborators.permissions->pendingAdminMessage()
                           : std::nullopt;
    m_collaborators.messages.setCurrentAdminMessage(local ? local : config.adminMessage);
}

void OverlayConfig::applyConfig(const AppConfigResponse &config)
{
    const QueryOrchestrator::Activity activity = m_collaborators.orchestrator.activity();
    const bool isAnswering = activity == QueryOrchestrator::Activity::Waiting ||
                             activity == QueryOrchestrator::Activity::Streaming;
    using Page = ServiceMessages::OutOfCreditsPage;
    m_collaborators.messages.updateUsage(config.tokensUsed, config.tokenCap,
                                         isAnswering ? Page::Withhold : Page::Show);
    applyModels(config);
    if (config.adminMessage) {
        m_collaborators.messages.setCurrentAdminMessage(config.adminMessage);
        return;
    }
    // Keep a locally generated message: the backend does not know about it, so its absence from the
    // configuration does not dismiss it. Otherwise fall back to unresolved start-up problems.
    const auto &shown = m_collaborators.messages.currentAdminMessage();
    if (!shown || !shown->id.startsWith(QLatin1String("local_")))
        m_collaborators.messages.setCurrentAdminMessage(
            m_collaborators.permissions ? m_collaborators.permissions->pendingAdminMessage()
                                        : std::nullopt);
}

void OverlayConfig::applyModels(const AppConfigResponse &config)
{
    m_collaborators.models.setOffer(config.availableModels, config.model);
    m_collaborators.menu.setConnectAvailable(config.connectModel);
    m_collaborators.accountVisit.setLasting(config.connectModel);
}

void OverlayConfig::handleAppDidBecomeActive()
{
    if (m_collaborators.permissions)
        m_collaborators.permissions->retest();
}

void OverlayConfig::startupMessageChanged()
{
    const auto &shown = m_collaborators.messages.currentAdminMessage();
    if (shown && shown->id != QLatin1String(PermissionChecker::messageId))
        return;
    // Without start-up problems, show the backend message they replaced.
    const auto &config = m_collaborators.session.currentConfig();
    const auto &pending = m_collaborators.permissions->pendingAdminMessage();
    m_collaborators.messages.setCurrentAdminMessage(pending  ? pending
                                                    : config ? config->adminMessage
                                                             : std::nullopt);
}

} // namespace quellora
