#pragma once

#include "platform/Platform.h"

namespace quellora {

/// Hands web and mail addresses and existing regular files to the user's default programs; all else
/// is Unsupported. Applied means handed over: a failure to open them is one log line later.
class WorkspaceMac : public Workspace
{
public:
    Capability openUrl(const QUrl &url) override;
    Capability openFile(const QString &path) override;
};

} // namespace quellora
