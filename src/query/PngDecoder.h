#pragma once

#include "query/Bitmap.h"

#include <QByteArray>

#include <optional>

namespace quellora {

/// Decodes a PNG of any colour type, bit depth and interlacing to 8-bit RGB; colour profiles,
/// gamma and transparency are not applied. Checksums are verified. Returns nullopt if the data is
/// not a complete, valid PNG, exceeds a limit below, or an allocation fails.
///
/// Uncompressed images, as written by our capture tool, are used in place; libspng decodes all
/// others.
std::optional<Bitmap> decodePng(const QByteArray &file);

/// Size limits in pixels of images that are decoded.
constexpr int maxPngSide = 32767;
constexpr qint64 maxPngPixels = qint64{1} << 27;

} // namespace quellora
