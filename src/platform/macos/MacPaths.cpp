#include "platform/macos/MacPaths.h"

#include <QStandardPaths>

namespace quellora {

QString MacPaths::applicationSupportDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}

CaptureTool MacPaths::captureTool()
{
    return {QStringLiteral("/usr/sbin/screencapture"),
            {QStringLiteral("-x"), QStringLiteral("-C")}};
}

} // namespace quellora
