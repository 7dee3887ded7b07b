#include "platform/macos/WorkspaceMac.h"

#include "app/Log.h"
#include "platform/OpenRules.h"
#include "platform/macos/Cocoa.h"

#include <QFileInfo>

namespace quellora {
namespace {

Capability handOver(NSURL *url)
{
    if (!url)
        return Capability::unsupported(QStringLiteral("The address is not valid"));
    // The simple call waits for the other program.
    [NSWorkspace.sharedWorkspace openURL:url
                           configuration:[NSWorkspaceOpenConfiguration configuration]
                       completionHandler:^(NSRunningApplication *, NSError *error) {
                           if (error)
                               Log::event(QStringLiteral("[Workspace] ERROR: Could not open: %1")
                                              .arg(Cocoa::string(error.localizedDescription)));
                       }];
    return Capability::applied();
}

} // namespace

Capability WorkspaceMac::openUrl(const QUrl &url)
{
    if (const QString refusal = OpenRules::refusalOf(url); !refusal.isEmpty())
        return Capability::unsupported(refusal);
    return handOver([NSURL URLWithString:Cocoa::string(url.toString(QUrl::FullyEncoded))]);
}

Capability WorkspaceMac::openFile(const QString &path)
{
    if (const QString refusal = OpenRules::refusalOf(path); !refusal.isEmpty())
        return Capability::unsupported(refusal);
    return handOver([NSURL fileURLWithPath:Cocoa::string(QFileInfo(path).absoluteFilePath())]);
}

} // namespace quellora
