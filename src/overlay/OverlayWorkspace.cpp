#include "overlay/OverlayWorkspace.h"

#include "base/WhenFinished.h"

namespace quellora {

QFuture<OpenResult> OverlayWorkspace::openUrl(const QUrl &url)
{
    return reportFailure(m_system.openUrl(url));
}

QFuture<OpenResult> OverlayWorkspace::openFile(const QString &path)
{
    return reportFailure(m_system.openFile(path));
}

QFuture<OpenResult> OverlayWorkspace::reportFailure(const QFuture<OpenResult> &opening)
{
    whenFinished(opening, this, [this](const OpenResult &result) {
        if (!result)
            Q_EMIT failed(result.error().text());
    });
    return opening;
}

} // namespace quellora
