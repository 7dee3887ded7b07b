#pragma once

#include "platform/linux/X11Connection.h"

#include <QAbstractNativeEventFilter>

#include <functional>

namespace quellora {

/// Monitors whether a per-screen selection has an owner. Compositors and system trays announce
/// themselves by owning one. Main thread only.
class SelectionWatchX11 : public QAbstractNativeEventFilter
{
public:
    /// @param name name of the selection without the screen number, e.g. "_NET_WM_CM_S"
    SelectionWatchX11(const X11Connection &x11, const QByteArray &name);

    bool isOwned() const { return m_owned; }
    /// Called on the main thread after every change; replaces the previous handler.
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
