#include "sheets/settings/TextColors.h"

#include <QRegularExpression>

#include <algorithm>
#include <array>

namespace quellora {
namespace {

struct Swatch
{
    const char *id;
    const char *name;
    /// The stored value; empty for no override.
    const char *hex;
    /// Colours shown in the two themes.
    QRgb dark;
    QRgb light;
};

// The blue swatch shows the theme's accent colour, which may differ from the stored value.
constexpr std::array<Swatch, 9> swatches{{
    {"theme", "Theme", "", 0xffe8e8ea, 0xff1c1e24},
    {"white", "White", "#ffffff", 0xffffffff, 0xffffffff},
    {"nearBlack", "Near black", "#15171c", 0xff15171c, 0xff15171c},
    {"green", "Green", "#3ddc84", 0xff3ddc84, 0xff3ddc84},
    {"cyan", "Cyan", "#22d3ee", 0xff22d3ee, 0xff22d3ee},
    {"blue", "Blue", "#2f80ed", 0xff2f80ed, 0xff1c6ad0},
    {"violet", "Violet", "#c77dff", 0xffc77dff, 0xffc77dff},
    {"magenta", "Magenta", "#ff4fd8", 0xffff4fd8, 0xffff4fd8},
    {"amber", "Amber", "#ffb020", 0xffffb020, 0xffffb020},
}};

} // namespace

std::optional<QString> TextColors::normalizedHex(const QString &input)
{
    static const QRegularExpression sixDigits(QStringLiteral("\\A[0-9a-fA-F]{6}\\z"));
    QString digits = input.trimmed();
    if (digits.startsWith(u'#'))
        digits.remove(0, 1);
    if (!sixDigits.match(digits).hasMatch())
        return std::nullopt;
    return u'#' + digits.toLower();
}

int TextColors::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(swatches.size());
}

QVariant TextColors::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Swatch &swatch = swatches.at(std::size_t(index.row()));
    switch (role) {
    case IdRole:
        return QString::fromLatin1(swatch.id);
    case Qt::DisplayRole:
    case NameRole:
        return QString::fromLatin1(swatch.name);
    case HexRole:
        return QString::fromLatin1(swatch.hex);
    case ColorRole:
        return QColor(m_isLight ? swatch.light : swatch.dark);
    default:
        return {};
    }
}

QHash<int, QByteArray> TextColors::roleNames() const
{
    return {
        {IdRole, "swatchId"}, {NameRole, "colorName"}, {HexRole, "hex"}, {ColorRole, "shownColor"}};
}

void TextColors::setLightTheme(bool isLight)
{
    if (isLight == m_isLight)
        return;
    m_isLight = isLight;
    Q_EMIT dataChanged(index(0), index(rowCount() - 1), {ColorRole});
}

void TextColors::setChosenHex(const QString &hex)
{
    const int before = chosenRow();
    m_chosenHex = hex;
    if (chosenRow() != before)
        Q_EMIT chosenRowChanged();
}

int TextColors::chosenRow() const
{
    const QString hex = m_chosenHex.toLower();
    const auto *found =
        std::find_if(swatches.begin(), swatches.end(),
                     [&hex](const Swatch &swatch) { return QLatin1StringView(swatch.hex) == hex; });
    return found == swatches.end() ? -1 : int(found - swatches.begin());
}

QString TextColors::hexAt(int row) const
{
    return row >= 0 && row < rowCount() ? QString::fromLatin1(swatches.at(std::size_t(row)).hex)
                                        : QString();
}

} // namespace quellora
