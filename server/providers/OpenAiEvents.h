#pragma once

#include "model/AnswerEvents.h"

#include <memory>

namespace quellora::server {

/// Reads one answer of the OpenAI chat format, with every error and ending that is documented for
/// it. Unknown events are ignored.
std::unique_ptr<AnswerEvents> openAiEvents();

} // namespace quellora::server
