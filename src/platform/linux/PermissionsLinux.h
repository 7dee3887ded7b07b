#pragma once

#include "platform/Platform.h"

namespace quellora {

/// X11 has no privacy gate: every client may watch keys and read the screen. In a Wayland session
/// the X server sees neither other programs' keys nor their windows, so nothing counts as granted
/// there unless the desktop says so.
class PermissionsLinux : public Permissions
{
public:
    enum class Session { X11, Wayland };

    explicit PermissionsLinux(Session session) : m_session(session) {}

    /// The session this process was started in, from its environment.
    static Session currentSession();

    bool isAccessibilityTrusted() const override { return m_session == Session::X11; }
    bool isScreenRecordingGranted() const override { return m_session == Session::X11; }
    /// Nothing to ask for: there is no prompt on X11.
    void requestScreenRecording() override {}

private:
    Session m_session;
};

} // namespace quellora
