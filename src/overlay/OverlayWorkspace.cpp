#include "overlay/OverlayWorkspace.h"

#include "base/WhenFinished.h"

namespace quellora {

QFuture<OpenResult> OverlayWorkspace::openUrl(const QUrl &url)
{
    return watch(m_system.openUrl(url));
}

QFuture<OpenResult> OverlayWorkspace::openFile(const QString &path)
{
    return watch(m_system.openFile(path));
}

QFuture<OpenResult> OverlayWorkspace::watch(const QFuture<OpenResult> &opening)
{
    whenFinished(opening, this, [this](const OpenResult &result) {
        if (!result)
            Q_EMIT failed(result.error().text());
    });
    return opening;
}

} // namespace quellora
