#pragma once

#include "platform/linux/X11Connection.h"

#include <QAbstractNativeEventFilter>

#include <functional>

namespace quellora {

/// Watches whether somebody owns a screen's selection: compositors and trays announce themselves
/// so.
class SelectionWatchX11 : public QAbstractNativeEventFilter
{
public:
    /// @param name the selection without the screen's number, e.g. "_NET_WM_CM_S"
    SelectionWatchX11(const X11Connection &x11, const QByteArray &name);

    bool isOwned() const { return m_owned; }
    /// Replaces the handler; it is called on the main thread after every change.
    void onChanged(std::function<void()> handler) { m_handler = std::move(handler); }

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

private:
    X11Connection m_x11;
    xcb_atom_t m_selection;
    quint8 m_firstEvent;
    bool m_owned = false;
    std::function<void()> m_handler;
};

} // namespace quellora
