#pragma once

#include "platform/Platform.h"

namespace quellora {

/// Opens web and mail addresses and existing regular files with the user's default programs and
/// refuses everything else.
class WorkspaceMac : public Workspace
{
public:
    QFuture<OpenResult> openUrl(const QUrl &url) override;
    QFuture<OpenResult> openFile(const QString &path) override;
};

} // namespace quellora
