#pragma once

#include "platform/macos/HoverDelivery.h"
#include "platform/macos/Subscription.h"

#include <QRect>

class QWindow;

namespace quellora {

/// Passes pointer events in the click-through area to the window underneath, and delivers the hover
/// events that Qt drops while the program is not active. Monitors the pointer only while the panel
/// is shown. Main thread only.
class PanelPointerMac
{
public:
    explicit PanelPointerMac(QWindow &window);

    /// @param responseRect in the window, points; when empty the whole window receives events
    void setResponseRect(const QRect &responseRect);
    /// Call after the window was shown, hidden, moved, resized or changed its flags.
    void windowChanged();
    /// Call for every new native window.
    void windowRecreated();

private:
    void updateMonitors();
    void applyPassing();

    QWindow &m_window;
    HoverDelivery m_hover;
    QRect m_responseRect;
    bool m_isPassing = false;
    bool m_isSet = false;
    Subscription m_ownEvents;
    Subscription m_othersEvents;
};

} // namespace quellora
