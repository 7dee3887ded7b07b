#pragma once

#include "cli/CommandOptions.h"
#include "cli/Commands.h"

#include <functional>

namespace CLI {
class App;
} // namespace CLI

namespace quellora::server {

/// Adds the commands that do what the pages below /admin do. @p choose is called with the work of
/// the command that was given.
void addAdminCommands(CLI::App &app, CommandOptions &options, CommandContext &context,
                      const std::function<void(std::function<void(const Config &)>)> &choose);

} // namespace quellora::server
