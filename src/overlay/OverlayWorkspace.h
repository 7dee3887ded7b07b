#pragma once

#include "platform/Platform.h"

#include <QObject>

namespace quellora {

/// Opens what the user pressed in the panel and tells what could not be opened, wherever it was
/// pressed. Main thread only.
class OverlayWorkspace : public QObject, public Workspace
{
    Q_OBJECT
public:
    /// @param system borrowed; does the opening
    explicit OverlayWorkspace(Workspace &system) : m_system(system) {}

    QFuture<OpenResult> openUrl(const QUrl &url) override;
    QFuture<OpenResult> openFile(const QString &path) override;

Q_SIGNALS:
    /// @param text the sentence for the user
    void failed(const QString &text);

private:
    QFuture<OpenResult> watch(const QFuture<OpenResult> &opening);

    Workspace &m_system;
};

} // namespace quellora
