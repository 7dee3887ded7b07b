#pragma once

#include <QString>

namespace quellora {

/// Number of user-perceived characters (grapheme clusters), not UTF-16 units.
qsizetype characterCount(const QString &text);

/// Shortest decimal representation of a double that parses back to the same value. Always has a
/// fractional part and never an exponent: 60 is "60.0", 1e6 is "1000000.0".
QString decimalText(double value);

/// Whether the text is a colour as style sheets take it: "#" and 3, 4, 6 or 8 hex digits.
bool isHexColor(const QString &text);

} // namespace quellora
