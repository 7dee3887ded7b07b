#pragma once

#include "platform/Platform.h"

#include <QString>
#include <QUrl>

#include <optional>

/// What is handed to the user's programs: web and mail addresses and existing regular files, and
/// nothing else, such as other schemes out of an answer.
namespace quellora::OpenRules {

/// Why the address is not handed on; nothing when it is.
std::optional<OpenFailure> refusalOf(const QUrl &url);
/// Why the file is not handed on; nothing when it is.
std::optional<OpenFailure> refusalOf(const QString &path);
/// The failure to open what was handed on, with its line in the log.
/// @param url a web, mail or file address
OpenFailure failure(const QUrl &url, const QString &reason);
/// The result of what did not even begin.
QFuture<OpenResult> notOpened(const OpenFailure &failure);

} // namespace quellora::OpenRules
