#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <tl/expected.hpp>

namespace quellora {

/// Parses @p json as an object, exactly as RFC 8259 defines JSON, or tells in words why it is none.
/// QJsonDocument alone also takes numbers such as "1." and ".5", unknown escapes and unescaped
/// control characters.
///
/// What the standard leaves open: a UTF-8 byte order mark is skipped, of duplicate keys the last
/// one wins, lone surrogates in escapes are kept, numbers too small for a double and more than 1024
/// levels are refused. Thread-safe.
tl::expected<QJsonObject, QString> parseJsonObject(const QByteArray &json);

} // namespace quellora
