#include "platform/macos/WorkspaceMac.h"

#include "platform/OpenRules.h"
#include "platform/macos/Cocoa.h"

#include <QFileInfo>
#include <QPromise>

#include <memory>

namespace quellora {
namespace {

QFuture<OpenResult> openNative(NSURL *native, const QUrl &url)
{
    if (!native)
        return OpenRules::failedFuture(
            OpenRules::failure(url, QStringLiteral("the address is not valid")));
    const auto promise = std::make_shared<QPromise<OpenResult>>();
    promise->start();
    // openURL: would block until the other program responds.
    [NSWorkspace.sharedWorkspace openURL:native
                           configuration:[NSWorkspaceOpenConfiguration configuration]
                       completionHandler:^(NSRunningApplication *, NSError *error) {
                           OpenResult result;
                           if (error)
                               result = tl::unexpected(OpenRules::failure(
                                   url, Cocoa::string(error.localizedDescription)));
                           promise->addResult(result);
                           promise->finish();
                       }];
    return promise->future();
}

} // namespace

QFuture<OpenResult> WorkspaceMac::openUrl(const QUrl &url)
{
    if (const auto refusal = OpenRules::checkAllowed(url))
        return OpenRules::failedFuture(*refusal);
    return openNative([NSURL URLWithString:Cocoa::string(url.toString(QUrl::FullyEncoded))], url);
}

QFuture<OpenResult> WorkspaceMac::openFile(const QString &path)
{
    if (const auto refusal = OpenRules::checkAllowed(path))
        return OpenRules::failedFuture(*refusal);
    const QString absolute = QFileInfo(path).absoluteFilePath();
    return openNative([NSURL fileURLWithPath:Cocoa::string(absolute)],
                      QUrl::fromLocalFile(absolute));
}

} // namespace quellora
