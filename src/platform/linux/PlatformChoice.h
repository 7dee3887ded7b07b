#pragma once

#include "platform/wayland/WaylandProbe.h"

#include <QByteArray>
#include <QString>

namespace quellora {

/// Which port serves a session, decided before the application object exists.
struct PlatformChoice
{
    enum class Port {
        /// The panel is a surface of the compositor's own layer above the windows.
        Wayland,
        /// An X11 panel in a Wayland session, with the desktop's own pictures.
        XWayland,
        X11,
        /// The toolkit chooses, e.g. offscreen.
        Toolkit,
    };

    /// The facts to decide by.
    struct Session
    {
        WaylandProbe compositor = WaylandProbe::NoCompositor;
        /// XDG_SESSION_TYPE is "wayland".
        bool isWayland = false;
        bool hasX11 = false;
        /// QUELLORA_PLATFORM: "wayland", "xwayland", "x11", or empty.
        QByteArray forced = {};
        /// QT_QPA_PLATFORM.
        QByteArray toolkitPlugin = {};
    };

    static PlatformChoice make(const Session &session);

    Port port = Port::Toolkit;
    /// For the log: the port and why.
    QString reason;
    /// Why the wish in QUELLORA_PLATFORM is not followed; empty if it is.
    QString warning = {};
};

} // namespace quellora
