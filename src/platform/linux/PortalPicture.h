#pragma once

#include <QImage>
#include <QList>
#include <QRect>
#include <QString>

#include <tl/expected.hpp>

#include <time.h>

namespace quellora {

/// The screens as they lie beside each other, in the units of the picture or multiples of them.
struct ScreenLayout
{
    QList<QRect> screens;
    /// The screen that a picture of one screen shows.
    int chosen = 0;
};

/// The part of a picture of all screens that shows the chosen one. The picture is taken to cover
/// the rectangle around all screens, with the same number of pixels per unit everywhere.
/// @return the whole picture if its shape says otherwise, or there is one screen only
QRect chosenPart(const QSize &picture, const ScreenLayout &layout);

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
