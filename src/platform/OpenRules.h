#pragma once

#include "platform/Platform.h"

#include <QString>
#include <QUrl>

#include <optional>

/// Rules for opening addresses and files with other programs. Only web and mail addresses and
/// existing regular files are allowed, because links in answers may have any scheme.
namespace quellora::OpenRules {

/// Checks whether an address may be opened. Logs a refusal.
/// @return the refusal; nullopt if the address is allowed
std::optional<OpenFailure> checkAllowed(const QUrl &url);
/// Checks whether a file may be opened. Logs a refusal.
/// @return the refusal; nullopt if the file is allowed
std::optional<OpenFailure> checkAllowed(const QString &path);
/// Creates and logs a failure to open an allowed address.
/// @param url a web, mail or file address
OpenFailure failure(const QUrl &url, const QString &reason);
/// A finished future that contains @p failure.
QFuture<OpenResult> failedFuture(const OpenFailure &failure);

} // namespace quellora::OpenRules
