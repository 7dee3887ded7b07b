#pragma once

#include <QColor>
#include <QObject>
#include <QString>

namespace quellora {

class Appearance;

/// Colours in force.
enum class AppTheme { Light, Dark };

/// What the user chose; System follows the desktop.
enum class AppearanceMode { Light, Dark, System };

/// Stored form: "light", "dark" or "system".
QString appearanceModeText(AppearanceMode mode);
/// Reverse of appearanceModeText(); any other text, also in another case, means System.
AppearanceMode appearanceModeFromText(const QString &text);

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

    AppearanceMode mode() const { return m_mode; }
    void setMode(AppearanceMode mode);

    /// The mode's own theme, or the desktop's for System. Dark until a mode is set.
    AppTheme appliedTheme() const { return m_appliedTheme; }
    AppTheme currentSystemTheme() const;

signals:
    /// After a change of mode and, in System mode, after a change of the desktop's appearance: the
    /// theme is to be applied again.
    void themeApplied(quellora::AppTheme theme);

private:
    void apply();

    Appearance &m_appearance;
    AppearanceMode m_mode = AppearanceMode::System;
    AppTheme m_appliedTheme = AppTheme::Dark;
};

} // namespace quellora
