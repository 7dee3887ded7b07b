#include "cli/Commands.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <fstream>
#include <iostream>

namespace {

/// Core dumps would hold prompts, answers, tokens and keys. Debuggers still attach.
void keepMemoryOutOfCoreDumps()
{
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    // Linux gives dumps to a collecting program in spite of the limit. Without memory then.
    std::ofstream("/proc/self/coredump_filter") << "0";
}

} // namespace

int main(int argc, char **argv)
{
    using namespace quellora::server;
    keepMemoryOutOfCoreDumps();
    // All files, including SQLite's journal files, are private to the user.
    ::umask(S_IRWXG | S_IRWXO);
    CommandContext context{std::cin, std::cout, std::cerr, processEnvironment()};
    return runCommand(std::vector<std::string>(argv + 1, argv + argc), context);
}
