#pragma once

#include "hotkeys/LocalKeyMonitor.h"
#include "overlay/NonFocusPanel.h"

#include <QObject>
#include <QPointer>

namespace quellora {

/// Routes the panel's key presses to the hot-key recorder. Takes keyboard focus and grabs the
/// keyboard, so that combos reserved by the desktop or other applications arrive too. Calls onLost
/// when the panel is no longer the active window.
class PanelKeyMonitor : public QObject, public LocalKeyMonitor
{
    Q_OBJECT
public:
    /// @param keys application-wide key monitor; must outlive this object
    explicit PanelKeyMonitor(KeyMonitor &keys);
    ~PanelKeyMonitor() override;

    /// Sets the panel to monitor, which must happen before install(). The panel may be destroyed
    /// before the monitor.
    void setPanel(NonFocusPanel *panel);

    void install(std::function<void(const KeyDown &)> onKeyDown,
                 std::function<void()> onLost) override;
    void remove() override;

private:
    QPointer<NonFocusPanel> m_panel;
    KeyMonitor &m_keys;
    bool m_isInstalled = false;
    std::function<void()> m_onLost;
};

} // namespace quellora
