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
    // WebEngine's long report of its settings would fill the log.
    setDefault("QT_LOGGING_RULES", "qt.webenginecontext=false");
    // Nothing captures the standard output of programs started from the desktop.
    const QString problem = LogFile::redirectIfDiscarded(STDOUT_FILENO, qgetenv("HOME"));
    if (!problem.isEmpty())
        std::fprintf(stderr, "quellora: no log is kept: %s\n", qPrintable(problem));
}

void Platform::prepareProcess()
{
    // Prevents a Dock entry before the program becomes an accessory.
    setDefault("QT_MAC_DISABLE_FOREGROUND_APPLICATION_TRANSFORM", "1");
    // Raising a window must not activate the program.
    setDefault("QT_MAC_SET_RAISE_PROCESS", "0");
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setAlphaBufferSize(8);
    QSurfaceFormat::setDefaultFormat(format);
}

void Platform::prepareWithoutDisplay()
{
    // The desktop is always there; what is never shown never becomes part of it.
    setDefault("QT_MAC_DISABLE_FOREGROUND_APPLICATION_TRANSFORM", "1");
}

bool Platform::prefersSoftwareRendering()
{
    return false;
}

void Platform::setDisplayLossHandler(void (*)())
{
    // At logout the system asks every program to quit first.
}

QString Platform::displaySession()
{
    // A user has one session at a time.
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
