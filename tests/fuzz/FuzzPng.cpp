#include "QtFuzz.h"
#include "query/PngDecoder.h"
#include "query/ScreenshotCapture.h"

#include <numeric>

using namespace quellora;
using namespace quellora::fuzz;

namespace {

constexpr std::size_t widthAt = 16;
constexpr std::size_t headerEnd = 24;
constexpr std::uint32_t mostPixels = 1U << 20U;

std::uint32_t bigEndian(const std::uint8_t *data)
{
    return std::accumulate(data, data + 4, std::uint32_t{0},
                           [](std::uint32_t sum, std::uint8_t byte) { return sum << 8U | byte; });
}

} // namespace

/// The input as what the capture tool has written. Every pixel of what is accepted can be read.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // Large pictures take long and reach nothing that small ones do not.
    if (size >= headerEnd) {
        const std::uint64_t width = bigEndian(data + widthAt);
        const std::uint64_t height = bigEndian(data + widthAt + 4);
        if (width < (1U << 16U) && height < (1U << 16U) && width * height > mostPixels)
            return -1;
    }
    auto bitmap = decodePng(bytes(view(data, size)));
    if (!bitmap)
        return 0;
    require(!bitmap->isNull() && bitmap->rows.size() == static_cast<std::size_t>(bitmap->height));
    std::uint64_t sum = 0;
    for (const std::uint8_t *row : bitmap->rows)
        sum = std::accumulate(row, row + bitmap->rowBytes(), sum);
    volatile std::uint64_t used = sum;
    Q_UNUSED(used)
    ScreenshotCapture::isNearBlackFrame(*bitmap);
    require(bitmap->toImage().size() == QSize(bitmap->width, bitmap->height));
    return 0;
}
