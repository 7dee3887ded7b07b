#pragma once

#include <QString>

namespace quellora {

/// Number of characters a reader would count: grapheme clusters, not UTF-16 units.
qsizetype characterCount(const QString &text);

/// Shortest decimal form of a double that reads back as the same number. It always has a fractional
/// part and never an exponent: 60 reads "60.0", 1e6 "1000000.0".
QString decimalText(double value);

} // namespace quellora
