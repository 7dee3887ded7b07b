#pragma once

#include "query/Bitmap.h"

#include <cstdint>
#include <vector>

namespace quellora {

/// Scales @p source down with a Lanczos filter of three lobes, widened by the scale so that it
/// also removes what the smaller picture cannot show; edges use the part of the filter inside the
/// picture. The result has three channels and differs from exact arithmetic by at most one step
/// per sample. Null when it cannot be created.
///
/// Works on up to @p threads bands at once and returns when all are done. Neither target side may
/// exceed its source side.
Bitmap resampleLanczos(const Bitmap &source, int targetWidth, int targetHeight, int threads);

/// Weights of one axis: target sample i is the sum over t of weights[i * taps + t] times source
/// sample starts[i] + t. Weights are 14-bit fractions that add up to exactly one.
struct LanczosTable
{
    static constexpr int fractionBits = 14;

    int taps = 0;
    std::vector<int> starts;
    std::vector<std::int16_t> weights;

    /// @param multiple taps are filled up to a multiple of this with zero weights; these may reach
    ///        beyond the last source sample
    static LanczosTable create(int sourceSize, int targetSize, int multiple);
};

/// The two inner loops, in the variants that this processor may run. All give equal results.
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
    static const LanczosKernels &best();
};

} // namespace quellora
