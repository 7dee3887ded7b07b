#include "overlay/PanelMemory.h"

#include "base/UserDefaults.h"
#include "overlay/OverlayGeometry.h"

#include <QGuiApplication>
#include <QScreen>
#include <QStringList>

#include <array>
#include <cstdlib>
#include <limits>
#include <utility>

namespace quellora {

namespace {

constexpr qsizetype longestName = 64;
/// Beyond any desktop.
constexpr int largestCoordinate = 100000;

QString storageKey()
{
    return QString::fromLatin1(DefaultsKey::panelPlaces);
}

/// A stored place and when it was stored, as a counter.
struct Entry
{
    PanelMemory::Place place;
    qint64 age = 0;
};

/// Reads "X Y WIDTH HEIGHT OPACITY COUNTER".
std::optional<Entry> parsed(const QString &text)
{
    const QStringList parts = text.left(200).split(u' ');
    if (parts.size() != 6)
        return std::nullopt;
    std::array<int, 4> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        bool isNumber = false;
        numbers.at(i) = parts.at(qsizetype(i)).toInt(&isNumber);
        if (!isNumber || std::abs(qint64(numbers.at(i))) > largestCoordinate)
            return std::nullopt;
    }
    const auto [x, y, width, height] = numbers;
    bool isOpacity = false;
    const double opacity = parts.at(4).toDouble(&isOpacity);
    bool isAge = false;
    const qint64 age = parts.at(5).toLongLong(&isAge);
    if (width < OverlayGeometry::minWindowWidth || height < OverlayGeometry::minWindowHeight ||
        !isOpacity || !(opacity >= 0 && opacity <= 1) || !isAge || age < 0 ||
        age == std::numeric_limits<qint64>::max())
        return std::nullopt;
    return Entry{{QRect(x, y, width, height), opacity}, age};
}

} // namespace

PanelMemory::PanelMemory(UserDefaults &defaults, Screens screens)
    : m_defaults(defaults), m_screens(std::move(screens))
{}

QList<PanelMemory::Screen> PanelMemory::currentScreens()
{
    QList<Screen> screens;
    for (const QScreen *screen : QGuiApplication::screens())
        screens.append({screen->name(), screen->geometry(), screen->devicePixelRatio()});
    return screens;
}

QString PanelMemory::arrangement() const
{
    QStringList parts;
    for (const Screen &screen : m_screens())
        parts << QStringLiteral("%1 %2,%3 %4x%5 @%6")
                     .arg(screen.name.left(longestName).simplified())
                     .arg(screen.geometry.x())
                     .arg(screen.geometry.y())
                     .arg(screen.geometry.width())
                     .arg(screen.geometry.height())
                     .arg(screen.scale);
    parts.sort();
    return parts.join(QStringLiteral("; "));
}

QMap<QString, QString> PanelMemory::stored() const
{
    return m_defaults.stringDictionary(storageKey()).value_or(QMap<QString, QString>());
}

std::optional<PanelMemory::Place> PanelMemory::recall() const
{
    const auto entry = parsed(stored().value(arrangement()));
    return entry ? std::optional(entry->place) : std::nullopt;
}

void PanelMemory::remember(const Place &place)
{
    const QString current = arrangement();
    if (current.isEmpty() || recall() == place)
        return;
    QMap<qint64, QString> byAge;
    QMap<QString, QString> places;
    const QMap<QString, QString> before = stored();
    for (auto it = before.begin(); it != before.end(); ++it) {
        const auto entry = parsed(*it);
        if (!entry || it.key() == current)
            continue;
        // Two of the same age can only come from elsewhere: one of them goes.
        byAge.insert(entry->age, it.key());
    }
    while (byAge.size() >= maximumArrangements)
        byAge.erase(byAge.begin());
    for (const QString &kept : std::as_const(byAge))
        places.insert(kept, before.value(kept));
    const qint64 age = byAge.isEmpty() ? 0 : byAge.lastKey() + 1;
    places.insert(current, QStringLiteral("%1 %2 %3 %4 %5 %6")
                               .arg(place.frame.x())
                               .arg(place.frame.y())
                               .arg(place.frame.width())
                               .arg(place.frame.height())
                               .arg(place.opacity)
                               .arg(age));
    m_defaults.setStringDictionary(storageKey(), places);
}

} // namespace quellora
