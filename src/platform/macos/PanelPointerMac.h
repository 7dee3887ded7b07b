#pragma once

#include "platform/macos/HoverDelivery.h"
#include "platform/macos/Subscription.h"

#include <QRect>

class QWindow;

namespace quellora {

/// The pointer over the panel: lets its events pass where they are meant for what lies underneath,
/// and tells the panel of moves that the toolkit drops because the program is not active. Watches
/// the pointer only while the panel is shown. Main thread only.
class PanelPointerMac
{
public:
    explicit PanelPointerMac(QWindow &window);

    /// @param responseRect in the window, points; empty: the whole window takes the events
    void setResponseRect(const QRect &responseRect);
    /// To be called when the window was shown, hidden, moved, resized or changed its flags.
    void windowChanged();
    /// To be called for every new native window.
    void windowRecreated();

private:
    void watch();
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
