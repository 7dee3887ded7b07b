#include "query/LanczosResampler.h"

#include <algorithm>
#include <cmath>
#include <future>
#include <numbers>
#include <numeric>

namespace quellora {

namespace {

constexpr double lobes = 3.0;
/// Samples that a horizontal pass may read beyond its row.
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

LanczosTable LanczosTable::create(int sourceSize, int targetSize, int multiple)
{
    const double scale = static_cast<double>(sourceSize) / targetSize;
    const double reach = lobes * scale;
    const auto centreOf = [scale](int i) { return (i + 0.5) * scale - 0.5; };
    const auto firstOf = [reach](double centre) {
        return static_cast<int>(std::floor(centre - reach)) + 1;
    };
    int wanted = 1;
    for (int i = 0; i < targetSize; ++i) {
        const double centre = centreOf(i);
        const int last = static_cast<int>(std::ceil(centre + reach)) - 1;
        wanted = std::max(wanted, last - firstOf(centre) + 1);
    }
    wanted = std::min(wanted, sourceSize);

    LanczosTable table;
    table.taps = (wanted + multiple - 1) / multiple * multiple;
    table.starts.reserve(static_cast<std::size_t>(targetSize));
    table.weights.reserve(static_cast<std::size_t>(targetSize) *
                          static_cast<std::size_t>(table.taps));
    // The filter falls on the source alike every so many target samples; the sines are the
    // costly part.
    const int period = targetSize / std::gcd(sourceSize, targetSize);
    const auto isInside = [&](int i) {
        const int first = firstOf(centreOf(i));
        return first >= 0 && first <= sourceSize - wanted;
    };
    std::vector<double> exact(static_cast<std::size_t>(wanted));
    std::vector<std::int16_t> rounded(static_cast<std::size_t>(table.taps));
    for (int i = 0; i < targetSize; ++i) {
        const double centre = centreOf(i);
        const int start = std::clamp(firstOf(centre), 0, sourceSize - wanted);
        table.starts.push_back(start);
        if (i >= period && isInside(i) && isInside(i - period)) {
            const auto twin = table.weights.size() - static_cast<std::size_t>(period) *
                                                         static_cast<std::size_t>(table.taps);
            for (int t = 0; t < table.taps; ++t)
                table.weights.push_back(table.weights[twin + static_cast<std::size_t>(t)]);
            continue;
        }
        for (int t = 0; t < wanted; ++t)
            exact[static_cast<std::size_t>(t)] = lanczos((start + t - centre) / scale);
        const double sum = std::accumulate(exact.begin(), exact.end(), 0.0);

        std::fill(rounded.begin(), rounded.end(), std::int16_t{0});
        int left = 1 << fractionBits;
        for (std::size_t t = 0; t < exact.size(); ++t) {
            rounded[t] =
                static_cast<std::int16_t>(std::lround(exact[t] / sum * (1 << fractionBits)));
            left -= rounded[t];
        }
        // What rounding lost goes to the largest weight, where it matters least.
        auto largest = std::max_element(rounded.begin(), rounded.end());
        *largest = static_cast<std::int16_t>(*largest + left);
        table.weights.insert(table.weights.end(), rounded.begin(), rounded.end());
    }
    return table;
}

Bitmap resampleLanczos(const Bitmap &source, int targetWidth, int targetHeight, int threads)
{
    Bitmap target = Bitmap::create(targetWidth, targetHeight, 3);
    if (target.isNull() || source.isNull())
        return {};
    const auto vertical =
        LanczosTable::create(source.height, targetHeight, LanczosKernels::verticalMultiple);
    const auto horizontal =
        LanczosTable::create(source.width, targetWidth, LanczosKernels::horizontalMultiple);

    const int bands = std::clamp(threads, 1, targetHeight);
    const auto bandStart = [&](int band) { return targetHeight * band / bands; };
    std::vector<std::future<void>> others;
    for (int band = 1; band < bands; ++band)
        // Where no thread can be had, the band is done by get() below.
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
