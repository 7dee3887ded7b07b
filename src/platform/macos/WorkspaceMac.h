#pragma once

#include "platform/Platform.h"

namespace quellora {

/// Hands web and mail addresses and existing regular files to the user's default programs; all else
/// is refused.
class WorkspaceMac : public Workspace
{
public:
    QFuture<OpenResult> openUrl(const QUrl &url) override;
    QFuture<OpenResult> openFile(const QString &path) override;
};

} // namespace quellora
