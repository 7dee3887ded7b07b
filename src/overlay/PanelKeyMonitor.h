#pragma once

#include "hotkeys/LocalKeyMonitor.h"
#include "overlay/ui/NonFocusPanel.h"

#include <QObject>
#include <QPointer>

class QKeyEvent;

namespace quellora {

class GlobalHotkeys;

/// The panel's keyboard in the hands of the recorder: takes the focus and grabs the keyboard, so
/// that combos which other programs or the desktop hold arrive here, too. Ends by itself when the
/// user turns to another program.
class PanelKeyMonitor : public QObject, public LocalKeyMonitor
{
    Q_OBJECT
public:
    /// @param hotkeys names the keys; must outlive the monitor
    explicit PanelKeyMonitor(const GlobalHotkeys &hotkeys);
    ~PanelKeyMonitor() override;

    /// Whose keyboard it is; may be destroyed before the monitor.
    void setPanel(NonFocusPanel *panel);

    void install(std::function<void(const KeyDown &)> onKeyDown,
                 std::function<void()> onLost) override;
    void remove() override;

    /// A key press in the recorder's terms.
    static KeyDown keyDown(const QKeyEvent &event, const GlobalHotkeys &hotkeys);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QPointer<NonFocusPanel> m_panel;
    const GlobalHotkeys &m_hotkeys;
    std::function<void(const KeyDown &)> m_onKeyDown;
    std::function<void()> m_onLost;
};

} // namespace quellora
