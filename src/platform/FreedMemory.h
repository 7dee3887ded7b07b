#pragma once

namespace quellora {

/// Makes the system's allocator give large blocks (128 KiB and more: pictures, pages, answers) back
/// as soon as they are freed. Left alone, the GNU C library keeps blocks of a size that was freed
/// once among the small ones, and what is left between them grows over weeks. Other libraries give
/// them back anyway. Call before the first other thread starts.
void giveBackFreedMemory();

/// Gives the whole pages among the small blocks that were freed back to the system, at once: the
/// allocator keeps them wherever a block behind them is in use. Takes about a millisecond. Any
/// thread; does nothing with other libraries than the GNU C library.
void giveBackFreedPages();

} // namespace quellora
