#include "platform/OpenRules.h"

#include <QFileInfo>
#include <QUrl>

namespace quellora {
namespace {

bool isAllowed(const QUrl &url)
{
    if (!url.isValid())
        return false;
    const QString scheme = url.scheme();
    if (scheme == QStringLiteral("http") || scheme == QStringLiteral("https"))
        return !url.host().isEmpty();
    return scheme == QStringLiteral("mailto") && !url.path().isEmpty();
}

} // namespace

QString OpenRules::refusalOf(const QUrl &url)
{
    if (isAllowed(url))
        return {};
    return QStringLiteral("Only web and mail addresses are opened, not \"%1\" addresses")
        .arg(url.scheme());
}

QString OpenRules::refusalOf(const QString &path)
{
    const bool isFile = !path.isEmpty() && QFileInfo(path).isFile();
    return isFile ? QString() : QStringLiteral("There is no such file");
}

} // namespace quellora
