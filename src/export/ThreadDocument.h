#pragma once

#include "export/AnswerRenderer.h"
#include "history/CaptureSession.h"

#include <QByteArray>

/// Threads as HTML. Pure functions without state, usable from any thread.
namespace quellora::threaddocument {

/// A whole HTML file that needs nothing else: pictures, fonts and rules are in it, it has no
/// scripts, and its policy refuses every request. Follows the reader's light or dark preference on
/// a screen, is light on paper.
/// @param answers the rendered answers of the thread's turns, in the order of @c thread.turns
QByteArray ofThread(const CaptureSession &thread, const RenderedAnswers &answers);

/// A piece of HTML for the clipboard: the thread without pictures.
/// @param answers rendered for pasting, in the order of @c thread.turns
QString forPasting(const CaptureSession &thread, const QStringList &answers);

} // namespace quellora::threaddocument
