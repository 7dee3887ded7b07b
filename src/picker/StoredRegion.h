#pragma once

#include <QRect>
#include <QSize>
#include <QString>

#include <optional>

namespace quellora {

/// A part of a screen's picture, as the settings keep it.
struct StoredRegion
{
    /// QScreen::name() of the screen.
    QString screen;
    /// Of the screen's picture, in pixels: the part means something else on another one.
    QSize picture;
    /// In pixels of the picture.
    QRect part;

    bool operator==(const StoredRegion &) const = default;

    QString toText() const;
    /// @return nothing if the text is damaged or the part is not inside its picture
    static std::optional<StoredRegion> fromText(const QString &text);
};

} // namespace quellora
