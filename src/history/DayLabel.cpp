#include "history/DayLabel.h"

#include <QRegularExpression>

namespace quellora {

QString dayLabel(const QDateTime &moment, const QDateTime &now, const QLocale &locale)
{
    const QDate day = moment.toLocalTime().date();
    const QDate today = now.toLocalTime().date();
    if (day == today)
        return QStringLiteral("Today");
    if (day == today.addDays(-1))
        return QStringLiteral("Yesterday");
    return locale.toString(day, mediumDateFormat(locale));
}

QString mediumDateFormat(const QLocale &locale)
{
    QString format = locale.dateFormat(QLocale::LongFormat);
    // Remove the weekday and its separators, whether it precedes or follows the date.
    static const QRegularExpression weekdayFirst(QStringLiteral("^\\s*d{3,4}[\\s,،.]*"));
    static const QRegularExpression weekdayElsewhere(QStringLiteral("[\\s,،]*\\bd{3,4}"));
    format.remove(weekdayFirst);
    format.remove(weekdayElsewhere);
    format.replace(QStringLiteral("MMMM"), QStringLiteral("MMM"));
    return format.trimmed();
}

} // namespace quellora
