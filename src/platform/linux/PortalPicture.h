#pragma once

#include <QImage>
#include <QString>

#include <tl/expected.hpp>

#include <ctime>

namespace quellora {

/// The files in which the Screenshot portal leaves its pictures. Thread-safe; for worker threads.
namespace PortalPicture {

/// The time as file systems record it, which lags behind the clock by some milliseconds.
timespec now();

/// Reads the picture and removes its file. The file stays, with a line in the log, unless it is
/// owned by this user and was written after @p request.
/// @param uri "file:" address from the portal's response
/// @param request now() before the portal was asked
/// @return the picture, or why there is none, for the user in a sentence without a full stop
tl::expected<QImage, QString> take(const QString &uri, const timespec &request);
/// Removes the file like take().
void discard(const QString &uri, const timespec &request);

} // namespace PortalPicture
} // namespace quellora
