#include "platform/linux/PlatformChoice.h"

namespace quellora {
namespace {

using Port = PlatformChoice::Port;

PlatformChoice automatic(const PlatformChoice::Session &session)
{
    switch (session.compositor) {
    case WaylandProbe::LayerShell:
        return {Port::Wayland,
                QStringLiteral("Wayland: the compositor takes panels above the windows")};
    case WaylandProbe::NoLayerShell:
        if (session.hasX11)
            return {Port::XWayland,
                    QStringLiteral("X11 in a Wayland session: the compositor takes no panels "
                                   "above the windows")};
        return {Port::Toolkit,
                QStringLiteral("No panel: the compositor takes none above the windows, and there "
                               "is no X server")};
    case WaylandProbe::NoCompositor:
        break;
    }
    if (!session.hasX11)
        return {Port::Toolkit, QStringLiteral("There is no display")};
    if (session.isWayland)
        return {Port::XWayland,
                QStringLiteral("X11 in a Wayland session: its compositor does not answer")};
    return {Port::X11, QStringLiteral("X11")};
}

} // namespace

PlatformChoice PlatformChoice::make(const Session &session)
{
    const QByteArray &plugin = session.toolkitPlugin;
    const bool wantsX11 = plugin.startsWith("xcb");
    if (!plugin.isEmpty() && !wantsX11 && !plugin.startsWith("wayland"))
        return {Port::Toolkit, QStringLiteral("QT_QPA_PLATFORM=") + QString::fromLocal8Bit(plugin)};

    const auto refused = [&](const QString &why) {
        PlatformChoice choice = automatic(session);
        choice.warning = QStringLiteral("QUELLORA_PLATFORM=%1 is ignored: %2")
                             .arg(QString::fromLocal8Bit(session.forced), why);
        return choice;
    };
    const QString noXServer = QStringLiteral("there is no X server");
    const bool hasCompositor = session.compositor != WaylandProbe::NoCompositor;
    const bool isWayland = hasCompositor || session.isWayland;
    if (session.forced == "wayland") {
        if (session.compositor == WaylandProbe::LayerShell)
            return {Port::Wayland, QStringLiteral("Wayland, as QUELLORA_PLATFORM says")};
        return refused(hasCompositor
                           ? QStringLiteral("the compositor takes no panels above the windows")
                           : QStringLiteral("there is no Wayland compositor"));
    }
    if (session.forced == "xwayland") {
        if (!isWayland)
            return refused(QStringLiteral("this is no Wayland session"));
        if (!session.hasX11)
            return refused(noXServer);
        return {Port::XWayland,
                QStringLiteral("X11 in a Wayland session, as QUELLORA_PLATFORM says")};
    }
    if (session.forced == "x11") {
        if (!session.hasX11)
            return refused(noXServer);
        return {Port::X11, QStringLiteral("X11, as QUELLORA_PLATFORM says")};
    }
    if (!session.forced.isEmpty())
        return refused(QStringLiteral("it is none of wayland, xwayland and x11"));
    if (wantsX11 && session.hasX11 && isWayland)
        return {Port::XWayland,
                QStringLiteral("X11 in a Wayland session, as QT_QPA_PLATFORM says")};
    return automatic(session);
}

} // namespace quellora
