#pragma once

#include "platform/Platform.h"

#include <QObject>

#include <chrono>

namespace quellora {

/// Opens addresses and files with `xdg-open` and reports its exit status.
///
/// Only web and mail addresses and existing regular files are opened; everything else, such as
/// links with other schemes in an answer, is refused. On some desktops `xdg-open` runs until the
/// opened program exits, so a process that has not failed within the timeout counts as success.
/// Processes outlive this object. Main thread only.
class WorkspaceLinux : public Workspace
{
public:
    static constexpr std::chrono::milliseconds defaultTimeout = std::chrono::seconds(10);

    explicit WorkspaceLinux(std::chrono::milliseconds timeout = defaultTimeout) : m_timeout(timeout)
    {}

    QFuture<OpenResult> openUrl(const QUrl &url) override;
    QFuture<OpenResult> openFile(const QString &path) override;

private:
    QFuture<OpenResult> startOpener(const QUrl &url);

    std::chrono::milliseconds m_timeout;
    /// Parent of the running processes' objects.
    QObject m_openerParent;
};

} // namespace quellora
