#include "page/AppTheme.h"

#include "platform/Platform.h"

#include <QPointer>

namespace quellora {

QString appearanceModeText(AppearanceMode mode)
{
    switch (mode) {
    case AppearanceMode::Light:
        return QStringLiteral("light");
    case AppearanceMode::Dark:
        return QStringLiteral("dark");
    case AppearanceMode::System:
        break;
    }
    return QStringLiteral("system");
}

AppearanceMode appearanceModeFromText(const QString &text)
{
    if (text == QLatin1StringView("light"))
        return AppearanceMode::Light;
    if (text == QLatin1StringView("dark"))
        return AppearanceMode::Dark;
    return AppearanceMode::System;
}

QColor responseBackdropColor(AppTheme theme)
{
    QColor color(theme == AppTheme::Dark ? QRgb(0x1c1e24) : QRgb(0xf7f5f0));
    color.setAlphaF(0.93F);
    return color;
}

QColor responseLeftBorderColor()
{
    return QColor::fromRgbF(0.07F, 0.07F, 0.11F, 0.9F);
}

ThemeController::ThemeController(Appearance &appearance, QObject *parent)
    : QObject(parent), m_appearance(appearance)
{
    m_appearance.onChanged([self = QPointer(this)] {
        if (self && self->m_mode == AppearanceMode::System)
            self->apply();
    });
}

void ThemeController::setMode(AppearanceMode mode)
{
    m_mode = mode;
    apply();
}

AppTheme ThemeController::currentSystemTheme() const
{
    return m_appearance.isDark() ? AppTheme::Dark : AppTheme::Light;
}

void ThemeController::apply()
{
    switch (m_mode) {
    case AppearanceMode::Light:
        m_appliedTheme = AppTheme::Light;
        break;
    case AppearanceMode::Dark:
        m_appliedTheme = AppTheme::Dark;
        break;
    case AppearanceMode::System:
        m_appliedTheme = currentSystemTheme();
        break;
    }
    emit themeApplied(m_appliedTheme);
}

} // namespace quellora
