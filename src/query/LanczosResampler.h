#pragma once

#include "query/Bitmap.h"

#include <cstdint>
#include <vector>

namespace quellora {

/// Downscales @p source with a three-lobed Lanczos filter, which is stretched by the scale factor
/// to prevent aliasing and normalised at the edges. The result has three channels in the same
/// order; samples differ from exact arithmetic by at most one. Null if the allocation fails. Sizes
/// are in pixels.
///
/// Processes up to @p threads bands in parallel and blocks until all are done. The target must not
/// be wider or higher than the source.
Bitmap resampleLanczos(const Bitmap &source, int targetWidth, int targetHeight, int threads);

/// Filter weights of one axis: target sample i is the sum over t of weights[i * taps + t] times
/// source sample starts[i] + t. Weights are 14-bit fixed-point numbers that add up to exactly one.
struct LanczosTable
{
    static constexpr int fractionBits = 14;

    int taps = 0;
    std::vector<int> starts;
    std::vector<std::int16_t> weights;

    /// @param multiple the number of taps is padded with zero weights to a multiple of this;
    /// padding
    ///        may refer to samples beyond the last source sample
    static LanczosTable create(int sourceSize, int targetSize, int multiple);
};

/// The two inner loops. All variants produce identical results.
struct LanczosKernels
{
    /// Fraction bits of the intermediate samples between the two passes.
    static constexpr int middleBits = 6;
    static constexpr int verticalMultiple = 2;
    static constexpr int horizontalMultiple = 4;

    /// Computes out[i] as the weighted sum of rows[t][i] over @p taps rows.
    void (*vertical)(const std::uint8_t *const *rows, const std::int16_t *weights, int taps,
                     int samples, std::int16_t *out);
    /// Computes one RGB output row. @p in must be readable for 32 samples beyond its end.
    void (*horizontal)(const std::int16_t *in, int channels, const LanczosTable &table,
                       int targetWidth, std::uint8_t *out);

    static const LanczosKernels &portable();
    /// The fastest variant for this processor.
    static const LanczosKernels &best();
};

} // namespace quellora
