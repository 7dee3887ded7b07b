#pragma once

#include <QDateTime>
#include <QLocale>

namespace quellora {

/// Day heading in a list, in local time: "Today", "Yesterday" or the date in the medium style of
/// @p locale.
QString dayLabel(const QDateTime &moment, const QDateTime &now, const QLocale &locale);

/// Date pattern with an abbreviated month and no weekday, derived from the long format of
/// @p locale because QLocale has no medium format.
QString mediumDateFormat(const QLocale &locale);

} // namespace quellora
