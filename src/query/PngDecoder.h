#pragma once

#include "query/Bitmap.h"

#include <QByteArray>

#include <optional>

namespace quellora {

/// Decodes a PNG of any colour type, bit depth and interlacing to 8-bit RGB; colour profiles,
/// gamma and transparency are not applied. Checksums are verified. Nothing when the data is not a
/// complete, valid PNG, when a limit below is exceeded, or when memory runs out.
///
/// Uncompressed pictures, which our capture tool writes, are used in place; libspng decodes all
/// others.
std::optional<Bitmap> decodePng(const QByteArray &file);

/// Limits of the pictures that are decoded.
constexpr int maxPngSide = 32767;
constexpr qint64 maxPngPixels = qint64{1} << 27;

} // namespace quellora
