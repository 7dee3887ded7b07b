#pragma once

#include "model/AnswerEvents.h"

#include <memory>

namespace quellora::server {

/// Reads one answer of the Anthropic Messages API, with every error and ending that is documented
/// for it. Unknown events are ignored.
std::unique_ptr<AnswerEvents> anthropicEvents();

} // namespace quellora::server
