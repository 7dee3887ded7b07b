#include "platform/linux/LinuxPaths.h"

#include <QCoreApplication>
#include <QDir>

namespace quellora {
namespace {

/// Exit status of the tool if no window is in front.
constexpr int noWindowStatus = 16;

} // namespace

QString LinuxPaths::applicationSupportDirectory()
{
    const QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    return QDir::isAbsolutePath(dataHome) ? QDir::cleanPath(dataHome)
                                          : QDir::homePath() + QStringLiteral("/.local/share");
}

CaptureTool LinuxPaths::captureTool()
{
    return {QCoreApplication::applicationDirPath() + QStringLiteral("/quellora-screencapture"),
            {QStringLiteral("-x"), QStringLiteral("-C")},
            {QStringLiteral("-x"), QStringLiteral("-C"), QStringLiteral("--all")},
            {QStringLiteral("-x"), QStringLiteral("-C"), QStringLiteral("--window")},
            noWindowStatus,
            {QStringLiteral("-x"), QStringLiteral("--all")}};
}

} // namespace quellora
