#pragma once

#include "history/CaptureSession.h"

#include <QByteArray>
#include <QString>

#include <functional>

/// Threads as Markdown. Pure functions without state, usable from any thread.
namespace quellora::threadmarkdown {

/// Gives the address of a screenshot's file, or an empty text to leave the picture out.
using PictureLink = std::function<QString(const CaptureSession::Screenshot &)>;

/// A moment with its year, in local time: "Nov 21, 2026, 9:05 AM".
QString dateText(const QDateTime &time);
/// The title that a thread is listed under.
QString titleOf(const CaptureSession &thread);

/// Markdown that shows exactly this text: nothing in it is taken for a mark, lines and blanks stay.
QString escaped(const QString &text);
/// An answer as a part of a longer text: what it leaves open at its end, a code block or an HTML
/// block, is closed.
QString closed(const QString &answer);

/// A whole thread: the title, then notes, questions with their pictures, and answers in the order
/// of their times. Ends with a line feed. Of pictures it shows only the thread's own, see
/// answermarkdown.
QString ofThread(const CaptureSession &thread, const PictureLink &link);

} // namespace quellora::threadmarkdown
