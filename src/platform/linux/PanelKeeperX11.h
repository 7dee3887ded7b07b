#pragma once

#include "platform/linux/X11Connection.h"

#include <QObject>
#include <QRect>

#include <optional>

class QWindow;

namespace quellora {

/// Reapplies the X properties and the input shape of one panel window, and manages its focus. The
/// window manager removes the states of a hidden window, Qt may recreate the native window, and the
/// input shape does not follow resizes. A child object of its window. Main thread only.
class PanelKeeperX11 : public QObject
{
    Q_OBJECT
public:
    /// Property (CARDINAL 1) of windows that this program's own screen captures omit.
    static constexpr auto captureExclusionProperty = "_QUELLORA_CAPTURE_EXCLUDE";

    /// The keeper of this window; created on the first call.
    static PanelKeeperX11 &of(const X11Connection &x11, QWindow &window);

    void keepTraits();
    void keepCaptureExclusion();
    bool isExcludedFromCapture() const { return m_excluded; }
    /// Makes the window fully transparent through the compositor, or visible again. It stays
    /// mapped, so it keeps the focus, the pointer's grab and its shape. No effect without a
    /// compositor that honours `_NET_WM_WINDOW_OPACITY`.
    void setVeiled(bool isVeiled);
    /// @param responseRect in points; if empty, the whole window receives events
    void keepClickThrough(const QRect &responseRect);
    /// Gives the window the focus. Hiding the focused window returns the focus to the previous
    /// window: window managers do not do that for windows that they do not manage.
    /// @return the X error code, 0 on success
    int takeFocus(xcb_timestamp_t time);
    /// Returns the focus to the window that had it before takeFocus(), if this window has it.
    /// @param time timestamp of the user action; after one later than the newest event, the server
    ///        would ignore the next takeFocus()
    void returnFocus(xcb_timestamp_t time);

    bool eventFilter(QObject *watched, QEvent *event) override;

Q_SIGNALS:
    /// The window is about to be mapped.
    void showing();

private:
    PanelKeeperX11(const X11Connection &x11, QWindow &window);
    void apply();
    void applyTraits();
    void applyShape();
    void applyVeil();
    void restoreFocusAfterHide();

    X11Connection m_x11;
    QWindow &m_window;
    bool m_traits = false;
    bool m_excluded = false;
    bool m_veiled = false;
    QRect m_responseRect;
    bool m_shaped = false;
    /// XCB_NONE if no X window had the focus.
    std::optional<xcb_window_t> m_previousFocus;
};

} // namespace quellora
