#pragma once

#include <QList>
#include <QMap>
#include <QRect>
#include <QString>

#include <functional>
#include <optional>

namespace quellora {

class UserDefaults;

/// Remembers where the panel was, for each arrangement of the screens: their names, geometry and
/// scale. Keeps the most recent arrangements. Main thread only.
///
/// What is stored is not trusted: a place that is none counts as absent.
class PanelMemory
{
public:
    struct Screen
    {
        QString name;
        /// In points.
        QRect geometry;
        double scale = 1;
    };
    struct Place
    {
        /// In points.
        QRect frame;
        /// From 0 to 1.
        double opacity = 0;

        bool operator==(const Place &) const = default;
    };
    using Screens = std::function<QList<Screen>()>;

    static constexpr qsizetype maximumArrangements = 12;

    /// @param defaults must outlive this object
    /// @param screens returns the connected screens
    explicit PanelMemory(UserDefaults &defaults, Screens screens = &currentScreens);

    static QList<Screen> currentScreens();
    /// Names the arrangement of the connected screens, regardless of their order; empty without a
    /// screen.
    QString arrangement() const;

    /// The place for the connected screens.
    std::optional<Place> recall() const;
    /// Stores the place for the connected screens; without a screen it does nothing.
    void remember(const Place &place);

private:
    QMap<QString, QString> stored() const;

    UserDefaults &m_defaults;
    Screens m_screens;
};

} // namespace quellora
