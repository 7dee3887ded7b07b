#pragma once

#include "query/Bitmap.h"

#include <QByteArray>

#include <optional>

namespace quellora {

/// Decodes a PNG of any colour type, bit depth and interlacing to 8-bit RGB; colour profiles,
/// gamma and transparency are not applied. Check sums are verified. Nothing when the data is no
/// complete, valid PNG, a side exceeds 32767 pixels or the picture 2^27 pixels, or memory runs out.
///
/// The common kind of screenshot (8 bits, no palette, not interlaced) is read by this module, its
/// uncompressed rows in place; every other one, and whatever looks irregular, by libspng.
std::optional<Bitmap> decodePng(const QByteArray &file);

/// Limits of what is decoded at all.
constexpr int maxPngSide = 32767;
constexpr qint64 maxPngPixels = qint64{1} << 27;

} // namespace quellora
