#pragma once

#include "platform/Platform.h"
#include "platform/macos/PanelPointerMac.h"
#include "platform/macos/Subscription.h"

#include <QObject>

namespace quellora {

/// Reapplies the traits, the capture exclusion, the click-through area and the keyboard focus of
/// one panel window, which Qt resets when it sets the window's flags, when the program is activated
/// and with every new native window. Has the texts of announcementProperty said. A child object of
/// its window. Main thread only.
class PanelKeeperMac : public QObject
{
    Q_OBJECT
public:
    /// The keeper of this window; created on the first call.
    static PanelKeeperMac &of(QWindow &window);

    /// BestEffort when Qt created an ordinary window.
    Capability keepTraits();
    /// See captureExclusion().
    Capability keepCaptureExclusion();
    Capability keepClickThrough(const QRect &responseRect);
    Capability orderFront();
    Capability takeKeyboard();
    void returnKeyboard();

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    explicit PanelKeeperMac(QWindow &window);
    /// Creates the native window as a non-activating panel if necessary.
    /// @return whether the window has one
    bool createNative();
    /// Has VoiceOver say a text. No effect while there is no native window.
    void announce(const QString &text);
    void apply();
    void applyTraits();
    void setAcceptsKeyboard(bool accepts);

    QWindow &m_window;
    PanelPointerMac m_pointer;
    bool m_hasTraits = false;
    bool m_isExcluded = false;
    bool m_isCreating = false;
    bool m_isNonactivating = false;
    /// The process to activate when the keyboard is returned; 0 for none.
    int m_previousProcess = 0;
    Subscription m_activated;
    Subscription m_deactivated;
};

} // namespace quellora
