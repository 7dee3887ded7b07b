#include "platform/macos/MacPaths.h"

#include <QStandardPaths>

namespace quellora {

QString MacPaths::applicationSupportDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}

CaptureTool MacPaths::captureTool()
{
    CaptureTool tool{QStringLiteral("/usr/sbin/screencapture"),
                     {QStringLiteral("-x"), QStringLiteral("-C")}};
    // The main screen.
    tool.choiceArguments = {QStringLiteral("-x")};
    return tool;
}

} // namespace quellora
