#pragma once

#include "query/Bitmap.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace quellora {

/// One image component in double precision, row by row.
struct Plane
{
    int width = 0;
    int height = 0;
    std::vector<double> samples;

    double &at(int x, int y)
    {
        return samples[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                       static_cast<std::size_t>(x)];
    }
    double at(int x, int y) const
    {
        return samples[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                       static_cast<std::size_t>(x)];
    }
};

inline Plane emptyPlane(int width, int height)
{
    return {
        width, height,
        std::vector<double>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))};
}

/// Weighted sum of red, green and blue per pixel; (0.299, 0.587, 0.114) gives the luma.
inline Plane planeOf(const Bitmap &bitmap, double red, double green, double blue)
{
    Plane plane = emptyPlane(bitmap.width, bitmap.height);
    for (int y = 0; y < bitmap.height; ++y) {
        const std::uint8_t *pixel = bitmap.rows[static_cast<std::size_t>(y)];
        for (int x = 0; x < bitmap.width; ++x, pixel += bitmap.channels)
            plane.at(x, y) = red * pixel[0] + green * pixel[1] + blue * pixel[2];
    }
    return plane;
}

/// Reference implementation of three-lobed Lanczos scaling along the rows. The result is
/// transposed, so that a second call scales the other axis and restores the orientation.
inline Plane lanczosRowsTransposed(const Plane &source, int target)
{
    Plane result = emptyPlane(source.height, target);
    const double scale = static_cast<double>(source.width) / target;
    const auto sinc = [](double x) {
        return x == 0.0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
    };
    for (int i = 0; i < target; ++i) {
        const double centre = (i + 0.5) * scale - 0.5;
        const int first = std::max(0, static_cast<int>(std::floor(centre - 3 * scale)) + 1);
        const int last =
            std::min(source.width - 1, static_cast<int>(std::ceil(centre + 3 * scale)) - 1);
        std::vector<double> weights;
        double sum = 0;
        for (int s = first; s <= last; ++s) {
            const double x = (s - centre) / scale;
            weights.push_back(sinc(x) * sinc(x / 3));
            sum += weights.back();
        }
        for (int y = 0; y < source.height; ++y) {
            double value = 0;
            for (int s = first; s <= last; ++s)
                value += weights[static_cast<std::size_t>(s - first)] * source.at(s, y);
            result.at(y, i) = value / sum;
        }
    }
    return result;
}

inline Plane exactLanczos(const Plane &source, int width, int height)
{
    Plane scaled = lanczosRowsTransposed(lanczosRowsTransposed(source, width), height);
    for (double &sample : scaled.samples)
        sample = std::clamp(sample, 0.0, 255.0);
    return scaled;
}

/// Mean structural similarity (SSIM) over windows of 8 x 8 pixels with a step of 4 (Wang, Bovik,
/// Sheikh and Simoncelli, "Image quality assessment: from error visibility to structural
/// similarity", 2004).
inline double structuralSimilarity(const Plane &a, const Plane &b)
{
    constexpr int window = 8;
    constexpr double count = window * window;
    constexpr double c1 = 0.01 * 255 * 0.01 * 255;
    constexpr double c2 = 0.03 * 255 * 0.03 * 255;
    double total = 0;
    int windows = 0;
    for (int top = 0; top + window <= a.height; top += 4) {
        for (int left = 0; left + window <= a.width; left += 4) {
            double sumA = 0;
            double sumB = 0;
            double sumAA = 0;
            double sumBB = 0;
            double sumAB = 0;
            for (int y = top; y < top + window; ++y) {
                for (int x = left; x < left + window; ++x) {
                    const double p = a.at(x, y);
                    const double q = b.at(x, y);
                    sumA += p;
                    sumB += q;
                    sumAA += p * p;
                    sumBB += q * q;
                    sumAB += p * q;
                }
            }
            const double meanA = sumA / count;
            const double meanB = sumB / count;
            const double varianceA = sumAA / count - meanA * meanA;
            const double varianceB = sumBB / count - meanB * meanB;
            const double covariance = sumAB / count - meanA * meanB;
            total += (2 * meanA * meanB + c1) * (2 * covariance + c2) /
                     ((meanA * meanA + meanB * meanB + c1) * (varianceA + varianceB + c2));
            ++windows;
        }
    }
    return total / windows;
}

} // namespace quellora
