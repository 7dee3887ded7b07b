#pragma once

#include <QByteArrayView>

namespace quellora::pagestyle {

/// Colour variables and the rules of every page.
extern const QByteArrayView base;
/// Rules for what the other sheets leave to the engine's defaults: horizontal rules, focus ring.
extern const QByteArrayView details;
/// Rules for the blocks of answers that the engine's defaults leave bare: tables, task lists,
/// footnotes, and the scrollbars of wide ones.
extern const QByteArrayView blocks;
/// Rules of thread pages and of the streaming shell, after the base rules.
extern const QByteArrayView thread;
/// Rules of the single-answer page.
extern const QByteArrayView singleAnswer;
/// Rules of the page of a thread that holds screenshots only.
extern const QByteArrayView screenshotOnly;

} // namespace quellora::pagestyle
