#pragma once

#include "Canvas.h"
#include "ExitStatus.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace quellora::screencapture {

/// Receives the next bytes of the file; a failure ends the encoding and is returned by it.
using ByteSink = std::function<tl::expected<void, Failure>(std::span<const std::byte>)>;

/// Whether a picture of this size fits into one IDAT chunk.
/// @return ImageTooLarge
tl::expected<void, Failure> checkImageSize(int width, int height);

/// Writes @p canvas as an 8-bit RGB PNG without filters in stored deflate blocks: the file is read
/// once and then deleted, so that compression would only cost time.
tl::expected<void, Failure> writePng(const Canvas &canvas, const ByteSink &sink);

/// Packs 0x??RRGGBB words into bytes R, G, B. @p target has room for 3 × @p count bytes.
void packRgb(const std::uint32_t *source, std::byte *target, int count);

} // namespace quellora::screencapture
