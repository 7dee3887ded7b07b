#pragma once

#include "query/Bitmap.h"

#include <QByteArray>

namespace quellora {

/// Encodes a baseline JPEG with halved colour resolution. Empty when the encoder refuses the
/// picture. @param quality 1 to 100
QByteArray encodeJpeg(const Bitmap &bitmap, int quality);

} // namespace quellora
