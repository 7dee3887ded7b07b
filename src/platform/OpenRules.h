#pragma once

#include <QString>

class QUrl;

/// What is handed to the user's programs: web and mail addresses and existing regular files, and
/// nothing else, such as other schemes out of an answer.
namespace quellora::OpenRules {

/// Why the address is not handed on; empty when it is.
QString refusalOf(const QUrl &url);
/// Why the file is not handed on; empty when it is.
QString refusalOf(const QString &path);

} // namespace quellora::OpenRules
