#pragma once

#include "base/Settings.h"

#include <QColor>
#include <QObject>

namespace quellora {

class Appearance;

/// Colours in force.
enum class AppTheme { Light, Dark };

/// Colour of the layers behind the response page, at their fixed alpha of 0.93.
QColor responseBackdropColor(AppTheme theme);
/// Colour of the line at the left of the response area, the same in both themes.
QColor responseLeftBorderColor();

/// Resolves the theme in force from the chosen mode and the desktop's appearance. Main thread only.
class ThemeController : public QObject
{
    Q_OBJECT

public:
    /// @param appearance the desktop's appearance; must outlive this object. Its one change handler
    ///        is taken by this object.
    explicit ThemeController(Appearance &appearance, QObject *parent = nullptr);

    void setMode(Settings::Appearance mode);

    /// The mode's own theme, or the desktop's for System. Dark until a mode is set.
    AppTheme appliedTheme() const { return m_appliedTheme; }
    AppTheme currentSystemTheme() const;

Q_SIGNALS:
    /// After a change of mode and, in System mode, after a change of the desktop's appearance: the
    /// theme is to be applied again.
    void themeApplied(quellora::AppTheme theme);

private:
    void apply();

    Appearance &m_appearance;
    Settings::Appearance m_mode = Settings::Appearance::System;
    AppTheme m_appliedTheme = AppTheme::Dark;
};

} // namespace quellora
