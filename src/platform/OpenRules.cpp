#include "platform/OpenRules.h"

#include "base/Log.h"

#include <QFileInfo>

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

/// The kind of program that opens the address, in user-visible text.
QString programFor(const QUrl &url)
{
    if (url.isLocalFile())
        return QStringLiteral("the file");
    return url.scheme() == QStringLiteral("mailto") ? QStringLiteral("the mail program")
                                                    : QStringLiteral("the browser");
}

OpenFailure logged(const OpenFailure &failure)
{
    Log::event(QStringLiteral("[Workspace] ERROR: ") + failure.text());
    return failure;
}

} // namespace

std::optional<OpenFailure> OpenRules::checkAllowed(const QUrl &url)
{
    if (isAllowed(url))
        return std::nullopt;
    return logged({OpenFailure::Kind::Refused, QStringLiteral("the address"),
                   QStringLiteral("only web and mail addresses are opened, not \"%1\" addresses")
                       .arg(url.scheme())});
}

std::optional<OpenFailure> OpenRules::checkAllowed(const QString &path)
{
    if (!path.isEmpty() && QFileInfo(path).isFile())
        return std::nullopt;
    return logged({OpenFailure::Kind::Refused, QStringLiteral("the file"),
                   QStringLiteral("there is no such file")});
}

OpenFailure OpenRules::failure(const QUrl &url, const QString &reason)
{
    return logged({OpenFailure::Kind::Failed, programFor(url), reason});
}

QFuture<OpenResult> OpenRules::failedFuture(const OpenFailure &failure)
{
    return QtFuture::makeReadyFuture<OpenResult>(tl::unexpected(failure));
}

} // namespace quellora
