#include "page/AppTheme.h"

#include "platform/Platform.h"

#include <QPointer>

namespace quellora {

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
        if (self && self->m_mode == Settings::Appearance::System)
            self->apply();
    });
}

void ThemeController::setMode(Settings::Appearance mode)
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
    case Settings::Appearance::Light:
        m_appliedTheme = AppTheme::Light;
        break;
    case Settings::Appearance::Dark:
        m_appliedTheme = AppTheme::Dark;
        break;
    case Settings::Appearance::System:
        m_appliedTheme = currentSystemTheme();
        break;
    }
    Q_EMIT themeApplied(m_appliedTheme);
}

} // namespace quellora
