#pragma once

#include "history/CaptureSession.h"

namespace quellora {

/// The prompt to send: all notes and earlier turns of @p session, followed by @p fieldText. Without
/// notes and turns, @p fieldText alone. Never truncated.
/// @param replaced the turn that the prompt takes the place of, if any: it and later ones stay out
QString contextAugmentedPrompt(const QString &fieldText, const CaptureSession &session,
                               const QUuid &replaced = {});

} // namespace quellora
