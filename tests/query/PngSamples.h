#pragma once

#include "query/Bitmap.h"

#include <QByteArray>
#include <QColor>

#include <functional>

namespace quellora {

/// Parameters for writing a sample image with libpng.
struct PngSample
{
    int width = 37;
    int height = 23;
    int depth = 8;
    /// PNG colour type: 0 grey, 2 RGB, 3 palette, 4 grey and alpha, 6 RGB and alpha.
    int colour = 2;
    bool interlaced = false;
    int level = 6;
    /// libpng's row filter flags; -1 for the default.
    int filters = -1;
    /// Maximum size of an IDAT chunk in bytes.
    int chunkSize = 8192;
};

/// Writes an image with pseudo-random smooth and noisy areas.
QByteArray writePng(const PngSample &sample, quint32 seed = 1);
/// Writes an 8-bit RGB image, not interlaced, with the colour of each pixel given by @p colour.
QByteArray writePng(int width, int height, const std::function<QRgb(int x, int y)> &colour);
/// Decodes a file with libpng to contiguous 8-bit RGB rows; empty if libpng rejects it.
QByteArray readWithLibpng(const QByteArray &file);

/// The samples of a bitmap as contiguous RGB rows.
QByteArray rgbOf(const Bitmap &bitmap);
Bitmap bitmapOf(int width, int height, const std::function<QRgb(int x, int y)> &colour,
                int channels = 3);

} // namespace quellora
