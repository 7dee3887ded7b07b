#include "cli/Commands.h"

#include <sys/stat.h>

#include <iostream>

int main(int argc, char **argv)
{
    using namespace quellora::server;
    // All files, including SQLite's journal files, are private to the user.
    ::umask(S_IRWXG | S_IRWXO);
    CommandContext context{std::cin, std::cout, std::cerr, processEnvironment()};
    return runCommand(std::vector<std::string>(argv + 1, argv + argc), context);
}
