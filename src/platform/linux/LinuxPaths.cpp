#include "platform/linux/LinuxPaths.h"

#include <QCoreApplication>
#include <QDir>

namespace quellora {

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
            {QStringLiteral("-x"), QStringLiteral("-C"), QStringLiteral("--all")}};
}

} // namespace quellora
