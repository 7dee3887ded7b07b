#pragma once

#include "platform/Platform.h"
#include "platform/linux/SessionBusLinux.h"

#include <QObject>

namespace quellora {

/// X11 has no permissions: every client may monitor keys and read the screen. In a Wayland session
/// the X server sees neither the keys nor the windows of other programs, so a permission counts as
/// granted if the desktop offers the corresponding portal. The portals are queried asynchronously;
/// until they reply nothing is granted. Main thread only.
class PermissionsLinux : public QObject, public Permissions
{
    Q_OBJECT
public:
    enum class Session { X11, Wayland };

    /// @param busAddress address of the session bus; empty if there is none
    explicit PermissionsLinux(Session session,
                              const QString &busAddress = SessionBusLinux::address());

    /// The session type of this process, from its environment.
    static Session currentSession();

    bool isAccessibilityTrusted() const override { return m_hasShortcuts; }
    bool isScreenRecordingGranted() const override;
    /// Takes the permission for pictures from @p source, and its handler. Without one, there is
    /// none in a Wayland session.
    void setScreenSource(ScreenSource *source);
    /// Does nothing: the portal prompts on each use, X11 never prompts.
    void requestScreenRecording() override {}
    void onChanged(std::function<void()> handler) override { m_handler = std::move(handler); }

private Q_SLOTS:
    void portalChanged(const QString &name, const QString &before, const QString &now);

private:
    void watchPortal();
    void queryPortals();
    /// Sets @p available if the portal has a version, i.e. if the desktop implements it.
    void queryPortal(const QString &portal, bool &available);
    void setAvailable(bool &available, bool value);

    SessionBusLinux m_bus;
    bool m_hasShortcuts;
    Session m_session;
    ScreenSource *m_screenSource = nullptr;
    std::function<void()> m_handler;
};

} // namespace quellora
