#include "overlay/OverlayLook.h"

#include "overlay/NonFocusPanel.h"
#include "overlay/OverlayModel.h"
#include "query/QueryOrchestrator.h"

#include <utility>

namespace quellora {

void OverlayLook::attach(NonFocusPanel &panel, OverlayModel &overlay,
                         QueryOrchestrator &orchestrator)
{
    connect(&orchestrator, &QueryOrchestrator::lookRequested, &m_model, &LookModel::setJpeg);
    connect(&m_model, &LookModel::sendRequested, &orchestrator, &QueryOrchestrator::sendLookedAt);
    connect(&m_model, &LookModel::attachRequested, &orchestrator,
            &QueryOrchestrator::attachLookedAt);
    connect(&m_model, &LookModel::dropRequested, &orchestrator, &QueryOrchestrator::dropLookedAt);
    connect(&m_model, &LookModel::pictureChanged, this, [this, &panel, &overlay] {
        overlay.setLooking(m_model.isOpen());
        if (!m_model.isOpen() && std::exchange(m_tookKeyboard, false))
            panel.resignKey();
    });
    // The panel is on the screen only then.
    connect(&orchestrator, &QueryOrchestrator::lookShown, this, [this, &panel] {
        if (panel.isKey())
            return;
        m_tookKeyboard = true;
        panel.makeKey();
    });
    // Nothing is sent from a panel that was hidden meanwhile without another look.
    connect(&panel, &QWindow::visibleChanged, this, [this](bool isVisible) {
        if (!isVisible)
            m_tookKeyboard = false;
    });
}

} // namespace quellora
