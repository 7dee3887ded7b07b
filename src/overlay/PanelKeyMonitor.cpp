#include "overlay/PanelKeyMonitor.h"

#include <utility>

namespace quellora {

PanelKeyMonitor::PanelKeyMonitor(KeyMonitor &keys) : m_keys(keys) {}

PanelKeyMonitor::~PanelKeyMonitor()
{
    remove();
}

void PanelKeyMonitor::setPanel(NonFocusPanel *panel)
{
    remove();
    m_panel = panel;
}

void PanelKeyMonitor::install(std::function<void(const KeyDown &)> onKeyDown,
                              std::function<void()> onLost)
{
    remove();
    m_isInstalled = true;
    m_onLost = std::move(onLost);
    m_panel->makeKey();
    m_panel->setKeyboardGrabEnabled(true);
    m_keys.install(std::move(onKeyDown));
    connect(m_panel, &QWindow::activeChanged, this, [this] {
        // Copied because the callback calls remove(), which resets m_onLost.
        if (const auto lost = m_onLost; lost && !m_panel->isActive())
            lost();
    });
}

void PanelKeyMonitor::remove()
{
    if (!std::exchange(m_isInstalled, false))
        return;
    m_keys.remove();
    m_onLost = nullptr;
    if (!m_panel)
        return;
    m_panel->disconnect(this);
    m_panel->setKeyboardGrabEnabled(false);
}

} // namespace quellora
