#pragma once

#include "platform/Platform.h"
#include "platform/macos/PanelPointerMac.h"
#include "platform/macos/Subscription.h"

#include <QObject>

namespace quellora {

/// Keeps the traits, the capture exclusion, the click-through and the keyboard of one panel window
/// as asked for: the toolkit resets them with the window's flags, with the program's activation
/// and with every new native window. Lives as a child of its window. Main thread only.
class PanelKeeperMac : public QObject
{
    Q_OBJECT
public:
    /// The keeper of this window, made when there is none.
    static PanelKeeperMac &of(QWindow &window);

    /// BestEffort when the toolkit made an ordinary window.
    Capability keepTraits();
    /// As captureExclusion() says.
    Capability keepCaptureExclusion();
    Capability keepClickThrough(const QRect &responseRect);
    Capability orderFront();
    Capability takeKeyboard();
    void returnKeyboard();

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    explicit PanelKeeperMac(QWindow &window);
    /// Sees to it that there is a native window that does not activate the program.
    /// @return whether there is
    bool makeNative();
    void apply();
    void applyTraits();
    void setAcceptsKeyboard(bool accepts);

    QWindow &m_window;
    PanelPointerMac m_pointer;
    bool m_hasTraits = false;
    bool m_isExcluded = false;
    bool m_isMaking = false;
    bool m_isNonactivating = false;
    /// The program to give the front back to when this one has it; 0 for none.
    int m_previousProcess = 0;
    Subscription m_activated;
    Subscription m_deactivated;
};

} // namespace quellora
