#pragma once

#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandKeyboard.h"

#include <QObject>
#include <QTimer>

namespace quellora {

/// Gives the keyboard back to the window that had it before this program's panel, for compositors
/// that do so only when a surface ends: an invisible surface of one pixel takes the keyboard and
/// vanishes. Main thread only; destroy before the connection.
class FocusBounce : public QObject
{
    Q_OBJECT
public:
    /// @param connection has a layer shell
    FocusBounce(const WaylandConnection &connection, const WaylandKeyboard &keyboard,
                QObject *parent = nullptr);
    ~FocusBounce() override;

    /// Starts; no effect while it runs. Takes some tens of milliseconds.
    void start();
    bool isRunning() const { return m_role != nullptr; }
    /// Stops without giving the keyboard back.
    void cancel();

private:
    struct Listeners;
    void takeKeyboard();
    WaylandPtr<wl_buffer> makeBuffer() const;

    const WaylandConnection &m_connection;
    // Before the role, which is destroyed first.
    WaylandPtr<wl_buffer> m_buffer;
    WaylandPtr<wl_surface> m_surface;
    WaylandPtr<zwlr_layer_surface_v1> m_role;
    /// Ends it if the keyboard does not come.
    QTimer m_timeout;
};

} // namespace quellora
