#include "platform/FreedMemory.h"

#ifdef __linux__
#include <malloc.h>
#endif

namespace quellora {

void giveBackFreedMemory()
{
#ifdef __GLIBC__
    // Both are the library's first values; setting them keeps it from raising them.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    mallopt(M_TRIM_THRESHOLD, 128 * 1024);
#endif
}

void giveBackFreedPages()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

} // namespace quellora
