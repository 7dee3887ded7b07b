#include "platform/LogFile.h"
#include "platform/Platform.h"
#include "platform/macos/MacPaths.h"
#include "platform/macos/PlatformMac.h"
#include "platform/null/NullPlatform.h"

#include <QGuiApplication>
#include <QSurfaceFormat>

#include <cstdio>

#include <unistd.h>

namespace quellora {
namespace {

void setDefault(const char *variable, const char *value)
{
    if (qEnvironmentVariableIsEmpty(variable))
        qputenv(variable, value);
}

} // namespace

void Platform::prepareOutput()
{
    // The page engine's long report of its own settings would bury everything else.
    setDefault("QT_LOGGING_RULES", "qt.webenginecontext=false");
    // A terminal or a pipe keeps what is written; started from the desktop, nobody does.
    const QString problem = LogFile::keepLostOutput(STDOUT_FILENO, qgetenv("HOME"));
    if (!problem.isEmpty())
        std::fprintf(stderr, "quellora: no log is kept: %s\n", qPrintable(problem));
}

void Platform::prepareProcess()
{
    // No entry in the Dock that flashes up until the program has become an accessory.
    setDefault("QT_MAC_DISABLE_FOREGROUND_APPLICATION_TRANSFORM", "1");
    // A window that comes above others brings its program to the front only when that is asked for.
    setDefault("QT_MAC_SET_RAISE_PROCESS", "0");
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setAlphaBufferSize(8);
    QSurfaceFormat::setDefaultFormat(format);
}

void Platform::leaveWithDisplay(void (*)())
{
    // Logging out asks every program to quit first.
}

QString Platform::displaySession()
{
    // A user has one at a time.
    return QStringLiteral("desktop");
}

std::unique_ptr<Platform> Platform::create()
{
    if (QGuiApplication::platformName() == QStringLiteral("cocoa"))
        return std::make_unique<PlatformMac>();
    return std::make_unique<NullPlatform>(
        std::make_unique<DeviceInfoMac>(), MacPaths::captureTool(),
        MacPaths::applicationSupportDirectory(), Vocabulary::macOS());
}

} // namespace quellora
