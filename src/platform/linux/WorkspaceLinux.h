#pragma once

#include "platform/Platform.h"

namespace quellora {

/// Hands addresses and files to the desktop's opener, `xdg-open`.
///
/// Only web and mail addresses and existing regular files are handed on: everything else, such as
/// other schemes out of an answer, is Unsupported. Applied means handed over; the opener runs on
/// its own, is started from a worker thread, and a failure to start it is one log line.
class WorkspaceLinux : public Workspace
{
public:
    Capability openUrl(const QUrl &url) override;
    Capability openFile(const QString &path) override;
};

} // namespace quellora
