#pragma once

#include "platform/ScreenLayout.h"
#include "platform/linux/PanelVeil.h"
#include "platform/linux/X11Connection.h"

#include <QAbstractNativeEventFilter>
#include <QTimer>

namespace quellora {

class PanelKeeperX11;

/// Makes the windows that are excluded from captures fully transparent through the window manager
/// of the X server. Whether the window manager has seen that is known from its answer to a later
/// request (`_NET_REQUEST_FRAME_EXTENTS`, sent for a window that is never shown); a picture that is
/// taken afterwards lacks the windows. Main thread only.
class PanelVeilX11 : public PanelVeil, public QAbstractNativeEventFilter
{
    Q_OBJECT
public:
    explicit PanelVeilX11(const X11Connection &x11, QObject *parent = nullptr);
    ~PanelVeilX11() override;

    /// The screens in pixels; chosen is the one with the panel, because the X server of a Wayland
    /// session does not know where the pointer is over other windows.
    ScreenLayout screenLayout() const;

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

protected:
    bool isNeeded() const override;
    void cover(std::function<void()> done) override;
    void uncover() override;

private:
    QList<PanelKeeperX11 *> keepers() const;
    void askWindowManager();
    void finishCover();
    void warnIfUnsupported();

    X11Connection m_x11;
    xcb_window_t m_helper;
    xcb_atom_t m_frameExtents;
    /// Requests that the window manager has not answered.
    int m_unanswered = 0;
    std::function<void()> m_done;
    QTimer m_limit;
    bool m_isSupportChecked = false;
};

} // namespace quellora
