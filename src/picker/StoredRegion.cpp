#include "picker/StoredRegion.h"

#include <QRegularExpression>

namespace quellora {

QString StoredRegion::toText() const
{
    // The name comes last: it may contain anything.
    return QStringLiteral("%1,%2 %3x%4 of %5x%6 on ")
               .arg(part.x())
               .arg(part.y())
               .arg(part.width())
               .arg(part.height())
               .arg(picture.width())
               .arg(picture.height()) +
           screen;
}

std::optional<StoredRegion> StoredRegion::fromText(const QString &text)
{
    static const QRegularExpression form(
        QStringLiteral("^(\\d{1,5}),(\\d{1,5}) (\\d{1,5})x(\\d{1,5}) of (\\d{1,5})x(\\d{1,5}) on "
                       "(.*)$"),
        QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    const auto number = [&match](int group) { return match.captured(group).toInt(); };
    const StoredRegion region{match.captured(7), QSize(number(5), number(6)),
                              QRect(number(1), number(2), number(3), number(4))};
    if (region.part.isEmpty() || !QRect(QPoint(), region.picture).contains(region.part))
        return std::nullopt;
    return region;
}

} // namespace quellora
