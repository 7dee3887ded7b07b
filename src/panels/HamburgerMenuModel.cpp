#include "panels/HamburgerMenuModel.h"

#include "base/AppConfig.h"

#include <algorithm>
#include <cmath>

namespace quellora {

void HamburgerMenuModel::setUsage(qint64 tokensUsed, qint64 tokenCap, bool capExceeded)
{
    if (m_tokensUsed == tokensUsed && m_tokenCap == tokenCap && m_capExceeded == capExceeded)
        return;
    m_tokensUsed = tokensUsed;
    m_tokenCap = tokenCap;
    m_capExceeded = capExceeded;
    Q_EMIT usageChanged();
}

void HamburgerMenuModel::setHistoryAvailable(bool isAvailable)
{
    if (m_historyAvailable == isAvailable)
        return;
    m_historyAvailable = isAvailable;
    Q_EMIT rowsChanged();
}

void HamburgerMenuModel::setSettingsAvailable(bool isAvailable)
{
    if (m_settingsAvailable == isAvailable)
        return;
    m_settingsAvailable = isAvailable;
    Q_EMIT rowsChanged();
}

void HamburgerMenuModel::setExportAvailable(bool isAvailable)
{
    if (m_exportAvailable == isAvailable)
        return;
    m_exportAvailable = isAvailable;
    Q_EMIT rowsChanged();
}

void HamburgerMenuModel::showExport(const QString &threadTitle, bool hasAnswer)
{
    m_isExportShown = true;
    m_exportTitle = threadTitle;
    m_answerAvailable = hasAnswer;
    Q_EMIT pageChanged();
}

void HamburgerMenuModel::showMain()
{
    if (!m_isExportShown)
        return;
    m_isExportShown = false;
    Q_EMIT pageChanged();
}

void HamburgerMenuModel::setConnectAvailable(bool isAvailable)
{
    if (m_connectAvailable == isAvailable)
        return;
    m_connectAvailable = isAvailable;
    Q_EMIT rowsChanged();
}

void HamburgerMenuModel::setCapturesAvailable(bool isAvailable)
{
    if (m_capturesAvailable == isAvailable)
        return;
    m_capturesAvailable = isAvailable;
    Q_EMIT rowsChanged();
}

double HamburgerMenuModel::usagePercent() const
{
    return hasCap() ? double(m_tokensUsed) / double(m_tokenCap) * 100.0 : 0.0;
}

HamburgerMenuModel::Tier HamburgerMenuModel::tier() const
{
    if (m_capExceeded && hasCap())
        return Tier::Exceeded;
    const double percent = usagePercent();
    if (percent >= dangerThreshold)
        return Tier::Danger;
    return percent >= amberThreshold ? Tier::Amber : Tier::Normal;
}

double HamburgerMenuModel::fillFraction() const
{
    return tier() == Tier::Exceeded ? 1.0 : std::clamp(usagePercent() / 100.0, 0.0, 1.0);
}

QString HamburgerMenuModel::usageText() const
{
    return hasCap() ? QStringLiteral("%1 of %2 credits")
                          .arg(AppConfig::formatCredits(m_tokensUsed),
                               AppConfig::formatCredits(m_tokenCap))
                    : QStringLiteral("No limit set");
}

QString HamburgerMenuModel::caption() const
{
    if (!hasCap())
        return {};
    if (m_capExceeded)
        return QStringLiteral("Limit exceeded. Sending is blocked.");
    // Rounded down, so that 100 % is not shown early.
    const QString used =
        QStringLiteral("%1% used").arg(QString::number(qint64(std::floor(usagePercent()))));
    return tier() == Tier::Danger ? used + QStringLiteral(". Almost out of credits.") : used;
}

} // namespace quellora
