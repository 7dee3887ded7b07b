#pragma once

namespace quellora {

/// Keeps the memory of this process and its children, which holds tokens, prompts and answers, out
/// of core dumps. Debuggers still attach: the process stays "dumpable", which the page engine and
/// the desktop's portals also need for reading what the system says about it.
void keepMemoryOutOfCoreDumps();

} // namespace quellora
