#include "query/LanczosResampler.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <future>
#include <limits>
#include <numbers>
#include <numeric>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace quellora {

namespace {

constexpr double lobes = 3.0;
/// Padding in samples, because the horizontal pass reads beyond the end of its row.
constexpr std::size_t readAhead = 64;

double sinc(double x)
{
    if (x == 0.0)
        return 1.0;
    const double angle = std::numbers::pi * x;
    return std::sin(angle) / angle;
}

double lanczos(double x)
{
    return std::abs(x) < lobes ? sinc(x) * sinc(x / lobes) : 0.0;
}

constexpr int verticalShift = LanczosTable::fractionBits - LanczosKernels::middleBits;
constexpr int verticalRounding = 1 << (verticalShift - 1);
constexpr int horizontalShift = LanczosTable::fractionBits + LanczosKernels::middleBits;
constexpr int horizontalRounding = 1 << (horizontalShift - 1);

std::int16_t intermediateSample(int sum)
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

/// Processes fixed-size blocks, so that the compiler keeps the sums in vector registers.
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
            out[i + k] = intermediateSample(sums[static_cast<std::size_t>(k)]);
    }
    for (; i < samples; ++i) {
        int sum = 0;
        for (int t = 0; t < taps; ++t)
            sum += weights[t] * rows[t][i];
        out[i] = intermediateSample(sum);
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

/// Processes two rows at a time: interleaves their samples and multiplies by pairs of weights.
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
        // Packing restores the sample order: it works within 128-bit lanes, as unpacking does.
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
        out[i] = intermediateSample(sum);
    }
}

/// Processes four taps at a time, two per 128-bit lane; each pixel pair is grouped by channel.
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
        // Stores four bytes for three, except at the last pixel, where that would overrun the row.
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

void resampleRows(const Bitmap &source, const LanczosTable &vertical,
                  const LanczosTable &horizontal, Bitmap &target, int first, int last)
{
    const LanczosKernels &kernels = LanczosKernels::best();
    const std::size_t samples = source.rowBytes();
    std::vector<std::int16_t> middle(
        samples + static_cast<std::size_t>(horizontal.taps * source.channels) + readAhead);
    std::vector<const std::uint8_t *> window(static_cast<std::size_t>(vertical.taps));
    std::uint8_t *out =
        target.buffers.front().get() + static_cast<std::size_t>(first) * target.rowBytes();
    for (int y = first; y < last; ++y, out += target.rowBytes()) {
        const int start = vertical.starts[static_cast<std::size_t>(y)];
        for (int t = 0; t < vertical.taps; ++t)
            window[static_cast<std::size_t>(t)] =
                source.rows[static_cast<std::size_t>(std::min(start + t, source.height - 1))];
        kernels.vertical(window.data(), vertical.weights.data() + std::ptrdiff_t{y} * vertical.taps,
                         vertical.taps, static_cast<int>(samples), middle.data());
        kernels.horizontal(middle.data(), source.channels, horizontal, target.width, out);
    }
}

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

LanczosTable LanczosTable::create(int sourceSize, int targetSize, int multiple)
{
    const double scale = static_cast<double>(sourceSize) / targetSize;
    const double support = lobes * scale;
    const auto centreOf = [scale](int i) { return (i + 0.5) * scale - 0.5; };
    const auto firstOf = [support](double centre) {
        return static_cast<int>(std::floor(centre - support)) + 1;
    };
    int tapCount = 1;
    for (int i = 0; i < targetSize; ++i) {
        const double centre = centreOf(i);
        const int last = static_cast<int>(std::ceil(centre + support)) - 1;
        tapCount = std::max(tapCount, last - firstOf(centre) + 1);
    }
    tapCount = std::min(tapCount, sourceSize);

    LanczosTable table;
    table.taps = (tapCount + multiple - 1) / multiple * multiple;
    table.starts.reserve(static_cast<std::size_t>(targetSize));
    table.weights.reserve(static_cast<std::size_t>(targetSize) *
                          static_cast<std::size_t>(table.taps));
    // Away from the edges, weights repeat with this period; copying them avoids the sines.
    const int period = targetSize / std::gcd(sourceSize, targetSize);
    const auto isInterior = [&](int i) {
        const int first = firstOf(centreOf(i));
        return first >= 0 && first <= sourceSize - tapCount;
    };
    std::vector<double> exact(static_cast<std::size_t>(tapCount));
    std::vector<std::int16_t> rounded(static_cast<std::size_t>(table.taps));
    for (int i = 0; i < targetSize; ++i) {
        const double centre = centreOf(i);
        const int start = std::clamp(firstOf(centre), 0, sourceSize - tapCount);
        table.starts.push_back(start);
        if (i >= period && isInterior(i) && isInterior(i - period)) {
            const auto previous = table.weights.size() - static_cast<std::size_t>(period) *
                                                             static_cast<std::size_t>(table.taps);
            for (int t = 0; t < table.taps; ++t)
                table.weights.push_back(table.weights[previous + static_cast<std::size_t>(t)]);
            continue;
        }
        for (int t = 0; t < tapCount; ++t)
            exact[static_cast<std::size_t>(t)] = lanczos((start + t - centre) / scale);
        const double sum = std::accumulate(exact.begin(), exact.end(), 0.0);

        std::fill(rounded.begin(), rounded.end(), std::int16_t{0});
        int residual = 1 << fractionBits;
        for (std::size_t t = 0; t < exact.size(); ++t) {
            rounded[t] =
                static_cast<std::int16_t>(std::lround(exact[t] / sum * (1 << fractionBits)));
            residual -= rounded[t];
        }
        // Add the rounding error to the largest weight, where it is relatively smallest.
        auto largest = std::max_element(rounded.begin(), rounded.end());
        *largest = static_cast<std::int16_t>(*largest + residual);
        table.weights.insert(table.weights.end(), rounded.begin(), rounded.end());
    }
    return table;
}

Bitmap resampleLanczos(const Bitmap &source, int targetWidth, int targetHeight, int threads)
{
    Bitmap target = Bitmap::create(targetWidth, targetHeight, 3);
    if (target.isNull() || source.isNull())
        return {};
    target.order = source.order;
    const auto vertical =
        LanczosTable::create(source.height, targetHeight, LanczosKernels::verticalMultiple);
    const auto horizontal =
        LanczosTable::create(source.width, targetWidth, LanczosKernels::horizontalMultiple);

    const int bands = std::clamp(threads, 1, targetHeight);
    const auto bandStart = [&](int band) { return targetHeight * band / bands; };
    std::vector<std::future<void>> others;
    for (int band = 1; band < bands; ++band)
        // If no thread can be started, get() below computes the band on this thread.
        others.push_back(std::async(std::launch::async | std::launch::deferred, [&, band] {
            resampleRows(source, vertical, horizontal, target, bandStart(band),
                         bandStart(band + 1));
        }));
    resampleRows(source, vertical, horizontal, target, 0, bandStart(1));
    for (auto &other : others)
        other.get();
    return target;
}

} // namespace quellora
