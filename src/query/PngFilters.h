#pragma once

#include <cstddef>
#include <cstdint>

namespace quellora {

/// Undoes one of PNG's five row filters in place, for pixels of 3 or 4 bytes.
/// @param previous the row above, already unfiltered; null for the first row
/// @return false when there is no such filter
bool undoPngFilter(std::uint8_t filter, std::uint8_t *row, const std::uint8_t *previous,
                   std::size_t size, int channels);

} // namespace quellora
