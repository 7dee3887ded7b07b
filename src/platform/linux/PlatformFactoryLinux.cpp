#include "platform/Platform.h"
#include "platform/linux/DeviceInfoLinux.h"
#include "platform/linux/LinuxPaths.h"
#include "platform/linux/PlatformX11.h"
#include "platform/null/NullPlatform.h"

#include <QRegularExpression>
#include <QSurfaceFormat>

namespace quellora {
namespace {

constexpr auto qtPlatformVariable = "QT_QPA_PLATFORM";
// Whether prepareProcess() set the variable; create() then unsets it.
bool hasSetPlatformVariable = false;

} // namespace

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
        qputenv(qtPlatformVariable, "xcb");
        hasSetPlatformVariable = true;
    }
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
    // Child processes must not inherit it.
    if (std::exchange(hasSetPlatformVariable, false))
        qunsetenv(qtPlatformVariable);
    if (const std::optional<X11Connection> x11 = X11Connection::current())
        return std::make_unique<PlatformX11>(*x11);
    return std::make_unique<NullPlatform>(
        std::make_unique<DeviceInfoLinux>(), LinuxPaths::captureTool(),
        LinuxPaths::applicationSupportDirectory(), Vocabulary::linuxDesktop());
}

} // namespace quellora
