#pragma once

#include "query/Bitmap.h"

#include <cstdint>
#include <vector>

namespace quellora {

/// Scales @p source down with a three-lobed Lanczos filter, widened by the scale factor against
/// aliasing and normalised at the edges. The result has three channels; samples differ from exact
/// arithmetic by at most one. Null when there is no memory for it.
///
/// Processes up to @p threads bands in parallel and returns when all are done. Neither target side
/// may exceed its source side.
Bitmap resampleLanczos(const Bitmap &source, int targetWidth, int targetHeight, int threads);

/// Weights of one axis: target sample i is the sum over t of weights[i * taps + t] times source
/// sample starts[i] + t. Weights are 14-bit fractions that add up to exactly one.
struct LanczosTable
{
    static constexpr int fractionBits = 14;

    int taps = 0;
    std::vector<int> starts;
    std::vector<std::int16_t> weights;

    /// @param multiple the number of taps is rounded up to a multiple of this with zero weights,
    ///        which may lie beyond the last source sample
    static LanczosTable create(int sourceSize, int targetSize, int multiple);
};

/// The two inner loops. All variants give equal results.
struct LanczosKernels
{
    /// Bits of fraction in the samples between the two passes.
    static constexpr int middleBits = 6;
    static constexpr int verticalMultiple = 2;
    static constexpr int horizontalMultiple = 4;

    /// out[i] = weighted sum of rows[t][i] over @p taps rows.
    void (*vertical)(const std::uint8_t *const *rows, const std::int16_t *weights, int taps,
                     int samples, std::int16_t *out);
    /// One output row of RGB. @p in must be readable for 32 samples beyond its end.
    void (*horizontal)(const std::int16_t *in, int channels, const LanczosTable &table,
                       int targetWidth, std::uint8_t *out);

    static const LanczosKernels &portable();
    /// The fastest variant for this processor.
    static const LanczosKernels &best();
};

} // namespace quellora
