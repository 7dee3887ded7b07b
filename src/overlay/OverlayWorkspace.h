#pragma once

#include "platform/Platform.h"

#include <QObject>

namespace quellora {

/// Workspace decorator that opens URLs and files for the whole panel and reports failures. Main
/// thread only.
class OverlayWorkspace : public QObject, public Workspace
{
    Q_OBJECT
public:
    /// @param system the wrapped workspace; must outlive this object
    explicit OverlayWorkspace(Workspace &system) : m_system(system) {}

    QFuture<OpenResult> openUrl(const QUrl &url) override;
    QFuture<OpenResult> openFile(const QString &path) override;

Q_SIGNALS:
    /// @param text message for the user
    void failed(const QString &text);

private:
    QFuture<OpenResult> reportFailure(const QFuture<OpenResult> &opening);

    Workspace &m_system;
};

} // namespace quellora
