#pragma once

#include "hotkeys/LocalKeyMonitor.h"
#include "overlay/NonFocusPanel.h"

#include <QObject>
#include <QPointer>

namespace quellora {

/// The panel's keyboard in the hands of the recorder: takes the focus and grabs the keyboard, so
/// that combos which other programs or the desktop hold arrive here, too. Ends by itself when the
/// user turns to another program.
class PanelKeyMonitor : public QObject, public LocalKeyMonitor
{
    Q_OBJECT
public:
    /// @param keys the program's key presses; must outlive the monitor
    explicit PanelKeyMonitor(KeyMonitor &keys);
    ~PanelKeyMonitor() override;

    /// Whose keyboard it is; may be destroyed before the monitor.
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
