#include "platform/linux/WorkspaceLinux.h"

#include "app/Log.h"
#include "platform/OpenRules.h"

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

Capability WorkspaceLinux::openUrl(const QUrl &url)
{
    if (const QString refusal = OpenRules::refusalOf(url); !refusal.isEmpty())
        return Capability::unsupported(refusal);
    return handOver(url);
}

Capability WorkspaceLinux::openFile(const QString &path)
{
    if (const QString refusal = OpenRules::refusalOf(path); !refusal.isEmpty())
        return Capability::unsupported(refusal);
    return handOver(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
}

} // namespace quellora
