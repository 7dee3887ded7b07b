#pragma once

#include "platform/Platform.h"
#include "platform/linux/SelectionWatchX11.h"
#include "platform/linux/SessionBusLinux.h"

#include <QObject>

#include <optional>

namespace quellora {

/// The system tray: a StatusNotifierItem host on the session bus, or the owner of the X selection
/// _NET_SYSTEM_TRAY_S<screen> where there is an X server. Both may appear and disappear. The bus is
/// queried asynchronously; until it replies there is no host. Main thread only.
class StatusAreaLinux : public QObject, public StatusArea
{
    Q_OBJECT
public:
    /// @param x11 nullopt on Wayland
    /// @param busAddress address of the session bus; empty if there is none
    explicit StatusAreaLinux(const std::optional<X11Connection> &x11,
                             const QString &busAddress = SessionBusLinux::address());

    bool isAvailable() const override { return m_available; }
    void onChanged(std::function<void()> handler) override { m_handler = std::move(handler); }

private Q_SLOTS:
    void queryHost();
    void watcherChanged(const QString &name, const QString &before, const QString &now);

private:
    void watchBus();
    void setHostRegistered(bool registered);
    void update();

    bool isSelectionOwned() const { return m_selection && m_selection->isOwned(); }

    std::optional<SelectionWatchX11> m_selection;
    SessionBusLinux m_bus;
    bool m_hostRegistered = false;
    bool m_available = false;
    std::function<void()> m_handler;
};

} // namespace quellora
