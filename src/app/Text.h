#pragma once

#include <QString>

namespace quellora {

/// Number of characters a reader would count: grapheme clusters, not UTF-16 units.
qsizetype characterCount(const QString &text);

} // namespace quellora
