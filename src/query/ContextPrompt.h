#pragma once

#include "history/CaptureSession.h"

namespace quellora {

/// The text to send for @p fieldText in a thread: the whole thread's notes and earlier turns, then
/// the text; in a thread without either the text alone. Nothing is cut short.
QString contextAugmentedPrompt(const QString &fieldText, const CaptureSession &session);

} // namespace quellora
