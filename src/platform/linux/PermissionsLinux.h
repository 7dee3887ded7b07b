#pragma once

#include "platform/Platform.h"

#include <QObject>

namespace quellora {

/// X11 has no permissions: every client may monitor keys and read the screen. In a Wayland session
/// the X server sees neither the keys nor the windows of other programs; there the keys count as
/// permitted while the desktop delivers them, and the source of pictures tells whether it may take
/// them. Main thread only.
class PermissionsLinux : public QObject, public Permissions
{
    Q_OBJECT
public:
    enum class Session { X11, Wayland };

    /// @param shortcuts the desktop's keys in a Wayland session; null if there are none. Must
    ///        outlive this object.
    explicit PermissionsLinux(Session session, DesktopShortcuts *shortcuts = nullptr);

    /// The session type of this process, from its environment.
    static Session currentSession();

    bool isAccessibilityTrusted() const override;
    bool isScreenRecordingGranted() const override;
    /// Takes the permission for pictures from @p source, and its handler. Without one, there is
    /// none in a Wayland session.
    void setScreenSource(ScreenSource *source);
    /// Does nothing: the portal prompts on each use, X11 never prompts.
    void requestScreenRecording() override {}
    void onChanged(std::function<void()> handler) override { m_handler = std::move(handler); }

private:
    void followShortcuts();

    Session m_session;
    DesktopShortcuts *m_shortcuts;
    bool m_areKeysDelivered = false;
    ScreenSource *m_screenSource = nullptr;
    std::function<void()> m_handler;
};

} // namespace quellora
