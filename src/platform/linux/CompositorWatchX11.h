#pragma once

#include "platform/linux/X11Connection.h"

#include <QAbstractNativeEventFilter>

#include <functional>

namespace quellora {

/// Watches whether a compositor runs: whether somebody owns the selection _NET_WM_CM_S<screen>.
class CompositorWatchX11 : public QAbstractNativeEventFilter
{
public:
    explicit CompositorWatchX11(const X11Connection &x11);

    bool isCompositing() const { return m_compositing; }
    /// Replaces the handler; it is called on the main thread after every change.
    void onChanged(std::function<void()> handler) { m_handler = std::move(handler); }

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

private:
    X11Connection m_x11;
    xcb_atom_t m_selection;
    quint8 m_firstEvent;
    bool m_compositing = false;
    std::function<void()> m_handler;
};

} // namespace quellora
