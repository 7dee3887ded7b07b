#include "platform/CoreDumps.h"

#include <sys/resource.h>

#include <cstdio>

namespace quellora {

void keepMemoryOutOfCoreDumps()
{
    rlimit size{};
    if (::getrlimit(RLIMIT_CORE, &size) == 0) {
        // The hard limit stays, for programs that are opened from here.
        size.rlim_cur = 0;
        ::setrlimit(RLIMIT_CORE, &size);
    }
    // Linux gives dumps to a collecting program in spite of the limit. Without memory then.
    if (std::FILE *filter = std::fopen("/proc/self/coredump_filter", "we")) {
        static_cast<void>(std::fputs("0", filter));
        static_cast<void>(std::fclose(filter));
    }
}

} // namespace quellora
