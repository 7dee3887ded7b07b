#include "query/LanczosResampler.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace quellora {

namespace {

constexpr int verticalShift = LanczosTable::fractionBits - LanczosKernels::middleBits;
constexpr int verticalRounding = 1 << (verticalShift - 1);
constexpr int horizontalShift = LanczosTable::fractionBits + LanczosKernels::middleBits;
constexpr int horizontalRounding = 1 << (horizontalShift - 1);

std::int16_t middleSample(int sum)
{
    return static_cast<std::int16_t>(std::clamp((sum + verticalRounding) >> verticalShift,
                                                int{std::numeric_limits<std::int16_t>::min()},
                                                int{std::numeric_limits<std::int16_t>::max()}));
}

std::uint8_t finalSample(int sum)
{
    return static_cast<std::uint8_t>(
        std::clamp((sum + horizontalRounding) >> horizontalShift, 0, 255));
}

/// Blocks of fixed size, so that compilers keep the sums in vector registers.
void verticalPortable(const std::uint8_t *const *rows, const std::int16_t *weights, int taps,
                      int samples, std::int16_t *out)
{
    constexpr int block = 16;
    int i = 0;
    for (; i + block <= samples; i += block) {
        std::array<int, block> sums{};
        for (int t = 0; t < taps; ++t) {
            const std::uint8_t *row = rows[t] + i;
            const int weight = weights[t];
            for (int k = 0; k < block; ++k)
                sums[static_cast<std::size_t>(k)] += weight * row[k];
        }
        for (int k = 0; k < block; ++k)
            out[i + k] = middleSample(sums[static_cast<std::size_t>(k)]);
    }
    for (; i < samples; ++i) {
        int sum = 0;
        for (int t = 0; t < taps; ++t)
            sum += weights[t] * rows[t][i];
        out[i] = middleSample(sum);
    }
}

template <int channels>
void horizontalPortable(const std::int16_t *in, const LanczosTable &table, int targetWidth,
                        std::uint8_t *out)
{
    for (int x = 0; x < targetWidth; ++x) {
        const std::int16_t *sample = in + table.starts[static_cast<std::size_t>(x)] * channels;
        const std::int16_t *weight = table.weights.data() + std::ptrdiff_t{x} * table.taps;
        int red = 0;
        int green = 0;
        int blue = 0;
        for (int t = 0; t < table.taps; ++t, sample += channels) {
            red += weight[t] * sample[0];
            green += weight[t] * sample[1];
            blue += weight[t] * sample[2];
        }
        *out++ = finalSample(red);
        *out++ = finalSample(green);
        *out++ = finalSample(blue);
    }
}

void horizontalPortableAny(const std::int16_t *in, int channels, const LanczosTable &table,
                           int targetWidth, std::uint8_t *out)
{
    if (channels == 3)
        horizontalPortable<3>(in, table, targetWidth, out);
    else
        horizontalPortable<4>(in, table, targetWidth, out);
}

#if defined(__x86_64__)

#define QUELLORA_AVX2 __attribute__((target("avx2")))

QUELLORA_AVX2 __m256i load256(const void *address)
{
    return _mm256_loadu_si256(static_cast<const __m256i *>(address));
}

QUELLORA_AVX2 __m128i load128(const void *address)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(address));
}

/// Two rows at a time: their samples side by side, times the pair of weights.
QUELLORA_AVX2 void verticalAvx2(const std::uint8_t *const *rows, const std::int16_t *weights,
                                int taps, int samples, std::int16_t *out)
{
    constexpr int block = 32;
    const __m256i rounding = _mm256_set1_epi32(verticalRounding);
    int i = 0;
    for (; i + block <= samples; i += block) {
        __m256i sum0 = rounding;
        __m256i sum1 = rounding;
        __m256i sum2 = rounding;
        __m256i sum3 = rounding;
        for (int t = 0; t < taps; t += 2) {
            int pair = 0;
            std::memcpy(&pair, weights + t, sizeof pair);
            const __m256i weight = _mm256_set1_epi32(pair);
            const std::uint8_t *rowA = rows[t] + i;
            const std::uint8_t *rowB = rows[t + 1] + i;
            const __m256i a0 = _mm256_cvtepu8_epi16(load128(rowA));
            const __m256i b0 = _mm256_cvtepu8_epi16(load128(rowB));
            const __m256i a1 = _mm256_cvtepu8_epi16(load128(rowA + 16));
            const __m256i b1 = _mm256_cvtepu8_epi16(load128(rowB + 16));
            sum0 = _mm256_add_epi32(sum0, _mm256_madd_epi16(_mm256_unpacklo_epi16(a0, b0), weight));
            sum1 = _mm256_add_epi32(sum1, _mm256_madd_epi16(_mm256_unpackhi_epi16(a0, b0), weight));
            sum2 = _mm256_add_epi32(sum2, _mm256_madd_epi16(_mm256_unpacklo_epi16(a1, b1), weight));
            sum3 = _mm256_add_epi32(sum3, _mm256_madd_epi16(_mm256_unpackhi_epi16(a1, b1), weight));
        }
        // Unpacking and packing both work within halves, so the order comes out right.
        const __m256i low = _mm256_packs_epi32(_mm256_srai_epi32(sum0, verticalShift),
                                               _mm256_srai_epi32(sum1, verticalShift));
        const __m256i high = _mm256_packs_epi32(_mm256_srai_epi32(sum2, verticalShift),
                                                _mm256_srai_epi32(sum3, verticalShift));
        _mm256_storeu_si256(static_cast<__m256i *>(static_cast<void *>(out + i)), low);
        _mm256_storeu_si256(static_cast<__m256i *>(static_cast<void *>(out + i + 16)), high);
    }
    for (; i < samples; ++i) {
        int sum = 0;
        for (int t = 0; t < taps; ++t)
            sum += weights[t] * rows[t][i];
        out[i] = middleSample(sum);
    }
}

/// Four taps at a time, two per half register, each pair of pixels sorted by channel.
template <int channels>
QUELLORA_AVX2 void horizontalAvx2(const std::int16_t *in, const LanczosTable &table,
                                  int targetWidth, std::uint8_t *out)
{
    const __m256i byChannel =
        channels == 3 ? _mm256_setr_epi8(0, 1, 6, 7, 2, 3, 8, 9, 4, 5, 10, 11, -1, -1, -1, -1, 0, 1,
                                         6, 7, 2, 3, 8, 9, 4, 5, 10, 11, -1, -1, -1, -1)
                      : _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, -1, -1, -1, -1, 0,
                                         1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, -1, -1, -1, -1);
    const __m256i spreadWeights = _mm256_setr_epi8(0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3,
                                                   4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7);
    const int taps = table.taps;
    const std::int16_t *weight = table.weights.data();
    for (int x = 0; x < targetWidth; ++x) {
        const std::int16_t *sample = in + table.starts[static_cast<std::size_t>(x)] * channels;
        __m256i sums = _mm256_setzero_si256();
        for (int t = 0; t < taps; t += 4, sample += 4 * channels, weight += 4) {
            __m256i pixels;
            if constexpr (channels == 4)
                pixels = load256(sample);
            else
                pixels = _mm256_inserti128_si256(_mm256_castsi128_si256(load128(sample)),
                                                 load128(sample + 6), 1);
            long long four = 0;
            std::memcpy(&four, weight, sizeof four);
            const __m256i weights = _mm256_shuffle_epi8(_mm256_set1_epi64x(four), spreadWeights);
            sums = _mm256_add_epi32(
                sums, _mm256_madd_epi16(_mm256_shuffle_epi8(pixels, byChannel), weights));
        }
        __m128i sum =
            _mm_add_epi32(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
        sum =
            _mm_srai_epi32(_mm_add_epi32(sum, _mm_set1_epi32(horizontalRounding)), horizontalShift);
        sum = _mm_packs_epi32(sum, sum);
        const int rgb = _mm_cvtsi128_si32(_mm_packus_epi16(sum, sum));
        // The last pixel must not touch what follows the row.
        std::memcpy(out, &rgb, x + 1 < targetWidth ? 4 : 3);
        out += 3;
    }
}

void horizontalAvx2Any(const std::int16_t *in, int channels, const LanczosTable &table,
                       int targetWidth, std::uint8_t *out)
{
    if (channels == 3)
        horizontalAvx2<3>(in, table, targetWidth, out);
    else
        horizontalAvx2<4>(in, table, targetWidth, out);
}

#endif

} // namespace

const LanczosKernels &LanczosKernels::portable()
{
    static constexpr LanczosKernels kernels{verticalPortable, horizontalPortableAny};
    return kernels;
}

const LanczosKernels &LanczosKernels::best()
{
#if defined(__x86_64__)
    static constexpr LanczosKernels avx2{verticalAvx2, horizontalAvx2Any};
    if (__builtin_cpu_supports("avx2"))
        return avx2;
#endif
    return portable();
}

} // namespace quellora
