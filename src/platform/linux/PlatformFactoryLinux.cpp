#include "base/Log.h"
#include "platform/Platform.h"
#include "platform/linux/DeviceInfoLinux.h"
#include "platform/linux/LinuxPaths.h"
#include "platform/linux/PlatformChoice.h"
#include "platform/linux/PlatformX11.h"
#include "platform/null/NullPlatform.h"
#include "platform/wayland/DisplayLossWayland.h"
#include "platform/wayland/PlatformWayland.h"
#include "platform/wayland/WaylandProbe.h"

#include <QDir>
#include <QRegularExpression>
#include <QSurfaceFormat>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace quellora {
namespace {

constexpr auto qtPlatformVariable = "QT_QPA_PLATFORM";
constexpr auto glIntegrationVariable = "QT_XCB_GL_INTEGRATION";
// A compositor that does not answer for so long is none.
constexpr std::chrono::seconds compositorPatience{3};

// What prepareProcess() has decided.
std::optional<PlatformChoice::Port> chosenPort;
// Variables that prepareProcess() has set, with their values before; create() restores them.
QList<std::pair<const char *, std::optional<QByteArray>>> ownVariables;

void setVariable(const char *name, const char *value)
{
    ownVariables.append(
        {name, qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt});
    qputenv(name, value);
}

void log(const QString &message)
{
    Log::event(QStringLiteral("[platform] ") + message);
}

/// Whether a graphics processor can be used: one of the kernel's render nodes, or the device of a
/// driver without them, may be opened.
bool hasGraphicsDevice()
{
    QStringList devices{QStringLiteral("/dev/nvidiactl"), QStringLiteral("/dev/dxg")};
    const QDir folder(QStringLiteral("/dev/dri"));
    const QStringList nodes =
        folder.entryList({QStringLiteral("renderD*")}, QDir::Files | QDir::System);
    for (const QString &node : nodes)
        devices.append(folder.filePath(node));
    return std::any_of(devices.begin(), devices.end(), [](const QString &device) {
        return ::access(QFile::encodeName(device).constData(), R_OK | W_OK) == 0;
    });
}

} // namespace

bool Platform::prefersSoftwareRendering()
{
    for (const char *choice :
         {"QT_QUICK_BACKEND", "QSG_RHI_BACKEND", "QMLSCENE_DEVICE", glIntegrationVariable}) {
        if (qEnvironmentVariableIsSet(choice))
            return false;
    }
    return !hasGraphicsDevice();
}

void Platform::prepareOutput()
{
    // The terminal or the session journal captures standard output.
}

void Platform::prepareProcess()
{
    const bool isX11Session = PermissionsLinux::currentSession() == PermissionsLinux::Session::X11;
    const PlatformChoice choice =
        PlatformChoice::make({probeWayland(compositorPatience),
                              qEnvironmentVariable("XDG_SESSION_TYPE") == QStringLiteral("wayland"),
                              !qEnvironmentVariableIsEmpty("DISPLAY"), qgetenv("QUELLORA_PLATFORM"),
                              qgetenv(qtPlatformVariable)});
    if (!choice.warning.isEmpty())
        log(QStringLiteral("WARNING: ") + choice.warning);
    log(choice.reason);
    chosenPort = choice.port;
    switch (choice.port) {
    case PlatformChoice::Port::Wayland:
        // The second one serves where the toolkit has no plugin for Wayland.
        setVariable(qtPlatformVariable, "wayland;xcb");
        // Leaves the panel's surface free for a role that the toolkit does not know. Stays set: it
        // is read each time a window is shown.
        qputenv(PanelWindowWayland::bypassVariable, "1");
        // Windows have the positions that they were given.
        setVariable("QT_WAYLAND_DISABLE_FIXED_POSITIONS", "1");
        break;
    case PlatformChoice::Port::XWayland:
    case PlatformChoice::Port::X11:
        if (!isX11Session)
            setVariable(qtPlatformVariable, "xcb");
        break;
    case PlatformChoice::Port::Toolkit:
        break;
    }
    // Without it, the OpenGL emulation stays unloaded: 60 MiB and 300 ms of the start.
    if (prefersSoftwareRendering())
        setVariable(glIntegrationVariable, "none");
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setAlphaBufferSize(8);
    QSurfaceFormat::setDefaultFormat(format);
}

void Platform::prepareWithoutDisplay()
{
    setVariable(qtPlatformVariable, "offscreen");
    setVariable(glIntegrationVariable, "none");
}

void Platform::setDisplayLossHandler(void (*handler)())
{
    X11Connection::setLossHandler(handler);
    setDisplayLossHandlerWayland(handler);
}

QString Platform::displaySession()
{
    // The same one for every port, so that each start finds the program that runs.
    if (const QString wayland = waylandSession(); !wayland.isEmpty())
        return wayland;
    const QString x11 = qEnvironmentVariable("DISPLAY");
    if (x11.isEmpty())
        return qEnvironmentVariable("WAYLAND_DISPLAY");
    // The suffix after the dot selects a screen of the same display.
    static const QRegularExpression screen(QStringLiteral("\\.[0-9]+$"));
    return QString(x11).remove(screen);
}

std::unique_ptr<Platform> Platform::create()
{
    // Child processes must not inherit them.
    const auto variables = std::exchange(ownVariables, {});
    for (const auto &[name, before] : variables) {
        if (before)
            qputenv(name, *before);
        else
            qunsetenv(name);
    }
    const std::optional<PlatformChoice::Port> port = std::exchange(chosenPort, std::nullopt);
    std::unique_ptr<WaylandConnection> wayland = WaylandConnection::current();
    if (wayland && wayland->layerShell())
        return std::make_unique<PlatformWayland>(std::move(wayland));
    if (const std::optional<X11Connection> x11 = X11Connection::current())
        return std::make_unique<PlatformX11>(*x11, port == PlatformChoice::Port::X11
                                                       ? PermissionsLinux::Session::X11
                                                       : PermissionsLinux::currentSession());
    return std::make_unique<NullPlatform>(
        std::make_unique<DeviceInfoLinux>(), LinuxPaths::captureTool(),
        LinuxPaths::applicationSupportDirectory(), Vocabulary::linuxDesktop());
}

} // namespace quellora
