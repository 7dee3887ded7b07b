#pragma once

#include <QStringList>

/// Answers' Markdown as parts of one document. Pure functions without state, usable from any
/// thread.
namespace quellora::answermarkdown {

/// The answers with links in place of pictures from elsewhere and with HTML that could fetch
/// anything as text, so that whatever shows them asks nobody. Code stays as it is.
QStringList withoutPictures(const QStringList &answers);
/// The answers with footnotes that stay apart in one document: a label that several answers use is
/// preceded by its answer's number, and a mark without a note of its own answer becomes text.
QStringList withOwnFootnotes(const QStringList &answers);

} // namespace quellora::answermarkdown
