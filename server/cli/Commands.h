#pragma once

#include "config/Config.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace quellora::server {

/// Everything that one run of the program uses from outside.
struct CommandContext
{
    std::istream &in;
    std::ostream &out;
    std::ostream &err;
    Environment environment;
    std::vector<Provider> providers = builtInProviders();
};

/// Exit statuses of the program.
constexpr int exitSuccess = 0;
constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

/// Runs the program with the arguments @p words (without its name) and returns its exit status.
int runCommand(const std::vector<std::string> &words, CommandContext &context);

/// Serves until SIGINT or SIGTERM; prints "listening on …" once connections are accepted.
int serve(const Config &config, CommandContext &context);

} // namespace quellora::server
