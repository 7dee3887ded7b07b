#include "platform/linux/WorkspaceLinux.h"

#include "app/Log.h"

#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThreadPool>

namespace quellora {
namespace {

Capability handOver(const QUrl &url)
{
    const QString opener = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    if (opener.isEmpty())
        return Capability::unsupported(QStringLiteral("xdg-open is not installed"));
    QThreadPool::globalInstance()->start([opener, url] {
        // Encoded and with its scheme in front, an address can never be taken for an option.
        if (!QProcess::startDetached(opener, {url.toString(QUrl::FullyEncoded)}))
            Log::event(QStringLiteral("[Workspace] ERROR: Could not start %1").arg(opener));
    });
    return Capability::applied();
}

} // namespace

bool WorkspaceLinux::isAllowed(const QUrl &url)
{
    if (!url.isValid())
        return false;
    const QString scheme = url.scheme();
    if (scheme == QStringLiteral("http") || scheme == QStringLiteral("https"))
        return !url.host().isEmpty();
    return scheme == QStringLiteral("mailto") && !url.path().isEmpty();
}

Capability WorkspaceLinux::openUrl(const QUrl &url)
{
    if (!isAllowed(url))
        return Capability::unsupported(
            QStringLiteral("Only web and mail addresses are opened, not \"%1\" addresses")
                .arg(url.scheme()));
    return handOver(url);
}

Capability WorkspaceLinux::openFile(const QString &path)
{
    const QFileInfo file(path);
    if (path.isEmpty() || !file.isFile())
        return Capability::unsupported(QStringLiteral("There is no such file"));
    return handOver(QUrl::fromLocalFile(file.absoluteFilePath()));
}

} // namespace quellora
