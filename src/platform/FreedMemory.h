#pragma once

namespace quellora {

/// Makes the system's allocator give large blocks (128 KiB and more: pictures, pages, answers) back
/// as soon as they are freed. Left alone, the GNU C library keeps blocks of a size that was freed
/// once among the small ones, and what is left between them grows over weeks. Other libraries give
/// them back anyway. Call before the first other thread starts.
void giveBackFreedMemory();

/// Returns free pages between blocks in use to the system, which the allocator otherwise keeps.
/// Takes about a millisecond. Any thread. Does nothing with other libraries than the GNU C library.
void giveBackFreedPages();

} // namespace quellora
