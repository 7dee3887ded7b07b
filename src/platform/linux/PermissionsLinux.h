#pragma once

#include "platform/Platform.h"
#include "platform/linux/SessionBusLinux.h"

#include <QObject>

namespace quellora {

/// X11 has no privacy gate: every client may watch keys and read the screen. In a Wayland session
/// the X server sees neither other programs' keys nor their windows; there a permission counts as
/// granted when the desktop's portal offers the way to it. The portal is asked without waiting:
/// until it answers nothing is granted. Main thread only.
class PermissionsLinux : public QObject, public Permissions
{
    Q_OBJECT
public:
    enum class Session { X11, Wayland };

    /// @param busAddress session bus; empty when there is none
    explicit PermissionsLinux(Session session,
                              const QString &busAddress = SessionBusLinux::address());

    /// The session this process was started in, from its environment.
    static Session currentSession();

    bool isAccessibilityTrusted() const override { return m_hasShortcuts; }
    bool isScreenRecordingGranted() const override { return m_hasScreenshots; }
    /// Nothing to ask for ahead of time: the portal asks at each use, X11 never does.
    void requestScreenRecording() override {}
    void onChanged(std::function<void()> handler) override { m_handler = std::move(handler); }

private Q_SLOTS:
    void portalChanged(const QString &name, const QString &before, const QString &now);

private:
    void watchPortal();
    void askPortal();
    /// Asks for the version of a portal; it has one when the desktop offers the portal.
    void ask(const QString &portal, bool &available);
    void set(bool &available, bool value);

    SessionBusLinux m_bus;
    bool m_hasShortcuts;
    bool m_hasScreenshots;
    std::function<void()> m_handler;
};

} // namespace quellora
