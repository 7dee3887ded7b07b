#pragma once

#include "history/CaptureSession.h"

namespace quellora {

/// The prompt to send: all notes and earlier turns of @p session, followed by @p fieldText. Without
/// notes and turns, @p fieldText alone. Never truncated.
QString contextAugmentedPrompt(const QString &fieldText, const CaptureSession &session);

} // namespace quellora
