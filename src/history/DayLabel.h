#pragma once

#include <QDateTime>
#include <QLocale>

namespace quellora {

/// Heading of a day in a list: "Today", "Yesterday" or the date in the medium style of @p locale,
/// each in local time.
QString dayLabel(const QDateTime &moment, const QDateTime &now, const QLocale &locale);

/// Pattern of a date with an abbreviated month and no weekday, derived from the long style of
/// @p locale, which has no medium one.
QString mediumDateFormat(const QLocale &locale);

} // namespace quellora
