#pragma once

#include "query/Bitmap.h"

#include <QByteArray>
#include <QColor>

#include <functional>

namespace quellora {

/// How a sample picture is written by libpng.
struct PngSample
{
    int width = 37;
    int height = 23;
    int depth = 8;
    /// PNG colour type: 0 grey, 2 RGB, 3 palette, 4 grey and alpha, 6 RGB and alpha.
    int colour = 2;
    bool interlaced = false;
    int level = 6;
    /// libpng's set of row filters; -1 for all of them.
    int filters = -1;
    /// Largest IDAT chunk.
    int chunkSize = 8192;
};

/// A picture of pseudo-random smooth and noisy parts.
QByteArray writePng(const PngSample &sample, quint32 seed = 1);
/// An RGB picture, one colour per pixel, in one piece.
QByteArray writePng(int width, int height, const std::function<QRgb(int x, int y)> &colour);
/// What libpng makes of a file, as 8-bit RGB rows; empty when it refuses.
QByteArray readWithLibpng(const QByteArray &file);

/// The samples of a bitmap as contiguous RGB rows.
QByteArray rgbOf(const Bitmap &bitmap);
Bitmap bitmapOf(int width, int height, const std::function<QRgb(int x, int y)> &colour,
                int channels = 3);

} // namespace quellora
