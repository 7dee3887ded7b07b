#pragma once

#include "platform/Platform.h"

#include <QObject>

#include <chrono>

namespace quellora {

/// Hands addresses and files to the desktop's opener, `xdg-open`, and watches how it ends.
///
/// Only web and mail addresses and existing regular files are handed on; everything else, such as
/// other schemes out of an answer, is refused. Some openers run the other program themselves and
/// stay as long as it does: one that has not failed within the patience has opened it. Openers and
/// their programs outlive this object. Main thread only.
class WorkspaceLinux : public Workspace
{
public:
    static constexpr std::chrono::milliseconds defaultPatience = std::chrono::seconds(10);

    explicit WorkspaceLinux(std::chrono::milliseconds patience = defaultPatience)
        : m_patience(patience)
    {}

    QFuture<OpenResult> openUrl(const QUrl &url) override;
    QFuture<OpenResult> openFile(const QString &path) override;

private:
    QFuture<OpenResult> handOver(const QUrl &url);

    std::chrono::milliseconds m_patience;
    /// Parent of the openers that run.
    QObject m_openers;
};

} // namespace quellora
