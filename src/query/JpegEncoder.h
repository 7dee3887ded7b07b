#pragma once

#include "query/Bitmap.h"

#include <QByteArray>

namespace quellora {

/// Encodes a baseline JPEG with 4:2:0 chroma subsampling. Empty if encoding fails.
/// @param quality 1 to 100
QByteArray encodeJpeg(const Bitmap &bitmap, int quality);

} // namespace quellora
