#pragma once

#include <QString>

namespace quellora {

/// Number of characters a reader would count: grapheme clusters, not UTF-16 units.
qsizetype characterCount(const QString &text);

/// Shortest decimal form of a double that always has a fractional part: 60 reads "60.0".
QString decimalText(double value);

} // namespace quellora
