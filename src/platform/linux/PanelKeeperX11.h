#pragma once

#include "platform/linux/X11Connection.h"

#include <QObject>
#include <QRect>

class QWindow;

namespace quellora {

/// Keeps the X properties, the input shape and the focus of one panel window as asked for: the
/// window manager drops the states of a hidden window, Qt makes new native windows, and a shape
/// does not follow a resized one. Lives as a child of its window.
class PanelKeeperX11 : public QObject
{
    Q_OBJECT
public:
    /// Marks windows that our own screen captures leave out; CARDINAL 1.
    static constexpr auto captureExclusionProperty = "_QUELLORA_CAPTURE_EXCLUDE";

    /// The keeper of this window, made when there is none.
    static PanelKeeperX11 &of(const X11Connection &x11, QWindow &window);

    void keepTraits();
    void keepCaptureExclusion();
    /// @param responseRect in points; empty makes the whole window take events
    void keepClickThrough(const QRect &responseRect);
    /// Gives the focus to the window, and back to where it was when the window is hidden while it
    /// has it: no window manager does that for a window which it does not manage.
    /// @return the X error code, 0 on success
    int takeFocus(xcb_timestamp_t time);
    /// Gives the focus back to where it was, if the window has it.
    /// @param time of the user's action; a later one than the server's newest event would make it
    ///        ignore the next takeFocus()
    void returnFocus(xcb_timestamp_t time);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    PanelKeeperX11(const X11Connection &x11, QWindow &window);
    void apply();
    void applyTraits();
    void applyShape();
    void giveFocusBack();

    X11Connection m_x11;
    QWindow &m_window;
    bool m_traits = false;
    bool m_excluded = false;
    QRect m_responseRect;
    bool m_shaped = false;
    xcb_window_t m_previousFocus = XCB_NONE;
};

} // namespace quellora
