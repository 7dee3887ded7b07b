#include "platform/Platform.h"
#include "platform/linux/DeviceInfoLinux.h"
#include "platform/linux/LinuxPaths.h"
#include "platform/linux/PlatformX11.h"
#include "platform/null/NullPlatform.h"

#include <QDir>
#include <QRegularExpression>
#include <QSurfaceFormat>

#include <unistd.h>

#include <algorithm>

namespace quellora {
namespace {

constexpr auto qtPlatformVariable = "QT_QPA_PLATFORM";
constexpr auto glIntegrationVariable = "QT_XCB_GL_INTEGRATION";
// Variables that prepareProcess() has set; create() unsets them.
QList<const char *> ownVariables;

void setVariable(const char *name, const char *value)
{
    qputenv(name, value);
    ownVariables.append(name);
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
    // Panels, hot keys and captures require X11, so a Wayland session uses its X server.
    const bool hasX11 = !qEnvironmentVariableIsEmpty("DISPLAY");
    if (hasX11 && qEnvironmentVariableIsEmpty(qtPlatformVariable) &&
        PermissionsLinux::currentSession() == PermissionsLinux::Session::Wayland) {
        setVariable(qtPlatformVariable, "xcb");
    }
    // Without it, the OpenGL emulation stays unloaded: 60 MiB and 300 ms of the start.
    if (prefersSoftwareRendering())
        setVariable(glIntegrationVariable, "none");
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setAlphaBufferSize(8);
    QSurfaceFormat::setDefaultFormat(format);
}

void Platform::setDisplayLossHandler(void (*handler)())
{
    X11Connection::setLossHandler(handler);
}

QString Platform::displaySession()
{
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
    for (const char *name : std::exchange(ownVariables, {}))
        qunsetenv(name);
    if (const std::optional<X11Connection> x11 = X11Connection::current())
        return std::make_unique<PlatformX11>(*x11);
    return std::make_unique<NullPlatform>(
        std::make_unique<DeviceInfoLinux>(), LinuxPaths::captureTool(),
        LinuxPaths::applicationSupportDirectory(), Vocabulary::linuxDesktop());
}

} // namespace quellora
