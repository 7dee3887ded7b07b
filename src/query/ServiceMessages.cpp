#include "query/ServiceMessages.h"

#include "base/Log.h"
#include "query/AnswerDisplay.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace quellora {

namespace {

constexpr double amberPercent = 80.0;
constexpr double redPercent = 95.0;
/// Fraction of the token cap from which queries are blocked.
constexpr double hardLimitFactor = 1.25;
constexpr int countdownTickMs = 60'000;

const char *const informational = "INFORMATIONAL";
const char *const blocking = "BLOCKING";

void log(const QString &message)
{
    Log::event(QStringLiteral("[OverlayWindowController] ") + message);
}

QString boolText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

const char *tierName(ServiceMessages::UsageTier tier)
{
    switch (tier) {
    case ServiceMessages::UsageTier::Red:
        return "red";
    case ServiceMessages::UsageTier::Amber:
        return "amber";
    case ServiceMessages::UsageTier::Grey:
        break;
    }
    return "grey";
}

} // namespace

ServiceMessages::ServiceMessages(AnswerDisplay &display, BackendEndpoints endpoints, Clock clock,
                                 QObject *parent)
    : QObject(parent)
    , m_display(display)
    , m_endpoints(std::move(endpoints))
    , m_clock(std::move(clock))
{
    m_rateLimitedTimer.setObjectName(QStringLiteral("rateLimitedTimer"));
    m_rateLimitedTimer.setParent(this);
    m_rateLimitedTimer.setSingleShot(true);
    // Coarse timers are up to 5 % off, which is minutes for a long rate limit.
    m_rateLimitedTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_rateLimitedTimer, &QTimer::timeout, this, &ServiceMessages::rateLimitEnded);
    m_updateCountdownTimer.setObjectName(QStringLiteral("updateCountdownTimer"));
    m_updateCountdownTimer.setParent(this);
    m_updateCountdownTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_updateCountdownTimer, &QTimer::timeout, this, &ServiceMessages::checkUpdateDeadline);
}

void ServiceMessages::setCurrentAdminMessage(const std::optional<AdminMessagePayload> &message)
{
    m_message = message;
    updateForceUpdateCountdown(message);
    Q_EMIT changed();
}

std::optional<AdminMessagePayload> ServiceMessages::displayedAdminMessage() const
{
    if (!m_message || !m_message->forceUpdateInMinutes)
        return m_message;
    AdminMessagePayload shown = *m_message;
    if (m_forceUpdateRequired) {
        shown.bodyMarkdown +=
            QStringLiteral("\n\n**Access restricted.** Please update Vantiro to continue.");
    } else if (m_updateDeadline) {
        const double secondsLeft =
            static_cast<double>(m_clock().msecsTo(*m_updateDeadline)) / 1000.0;
        const auto minutes =
            std::max<qint64>(static_cast<qint64>(std::ceil(secondsLeft / 60.0)), 0);
        shown.bodyMarkdown += QStringLiteral("\n\nYou have **%1 minute%2** before access is "
                                             "restricted.")
                                  .arg(minutes)
                                  .arg(minutes == 1 ? QString() : QStringLiteral("s"));
    }
    return shown;
}

bool ServiceMessages::isInformationalCollapsed() const
{
    return m_message && !m_message->isBlocking() &&
           m_message->id == m_collapsedInformationalMessageId;
}

void ServiceMessages::toggleInformationalCollapse()
{
    if (!m_message || m_message->isBlocking())
        return;
    m_collapsedInformationalMessageId = isInformationalCollapsed() ? QString() : m_message->id;
    Q_EMIT changed();
}

double ServiceMessages::usagePercent() const
{
    if (m_tokenCap < 1)
        return 0.0;
    return static_cast<double>(m_tokensUsed) / static_cast<double>(m_tokenCap) * 100.0;
}

ServiceMessages::UsageTier ServiceMessages::usageTier() const
{
    const double percent = usagePercent();
    if (percent >= redPercent)
        return UsageTier::Red;
    return percent >= amberPercent ? UsageTier::Amber : UsageTier::Grey;
}

bool ServiceMessages::isUsageIndicatorVisible() const
{
    return usagePercent() >= amberPercent;
}

void ServiceMessages::handleRateLimited(qint64 resetInSeconds)
{
    if (isBlockingMessageShown()) {
        log(QStringLiteral("rate_limited received but a BLOCKING message is already showing — not "
                           "overwriting"));
        return;
    }
    showLocal(rateLimitedId, informational, QStringLiteral("Rate Limited"),
              QStringLiteral("Too many requests — please wait %1 seconds before capturing again.")
                  .arg(resetInSeconds));
    // The value comes from the server: clamp it to the range of QTimer.
    const qint64 seconds =
        std::clamp<qint64>(resetInSeconds, 0, std::numeric_limits<int>::max() / 1000);
    m_rateLimitedTimer.start(static_cast<int>(seconds * 1000));
}

void ServiceMessages::rateLimitEnded()
{
    if (m_message && m_message->id == QLatin1String(rateLimitedId))
        setCurrentAdminMessage(std::nullopt);
}

void ServiceMessages::handleProtectedContentCapture()
{
    if (isBlockingMessageShown()) {
        log(QStringLiteral("Protected-content capture but a BLOCKING message is already showing — "
                           "not overwriting"));
        return;
    }
    showLocal(protectedContentId, informational, QStringLiteral("Couldn't Capture Screen"),
              QStringLiteral("Couldn't capture the screen — the content may be protected (DRM). "
                             "Try a different window."));
}

void ServiceMessages::handleServerMessage(const QString &message)
{
    m_lastQueryHitServerMessage = true;
    log(QStringLiteral("Server sent an error event (rendered as the standard credits-exhausted "
                       "card, not shown verbatim): ") +
        message);
    if (isBlockingMessageShown()) {
        log(QStringLiteral("Server message received but a BLOCKING message is already showing — "
                           "not overwriting"));
        Q_EMIT changed();
        return;
    }
    showCreditsCard(creditsExhaustedId);
}

void ServiceMessages::handleCapExceeded(qint64 tokensUsed, qint64 tokenCap)
{
    m_tokensUsed = tokensUsed;
    m_tokenCap = tokenCap;
    refreshUsageBar();
    if (!isBlockingMessageShown())
        setCapExceeded(true);
    Q_EMIT changed();
}

bool ServiceMessages::isExhausted() const
{
    return (m_tokenCap >= 1 && m_tokensUsed >= m_tokenCap) || m_lastQueryHitServerMessage;
}

bool ServiceMessages::blockIfKnownOverCap()
{
    if (!isExhausted())
        return false;
    log(QStringLiteral("Query pre-blocked — client already knows credits are exhausted "
                       "(tokensUsed=%1, tokenCap=%2, lastQueryHitServerMessage=%3)")
            .arg(QString::number(m_tokensUsed), QString::number(m_tokenCap),
                 boolText(m_lastQueryHitServerMessage)));
    handleServerMessage(QStringLiteral("(local pre-block — no server round-trip occurred)"));
    return true;
}

bool ServiceMessages::isBlocked() const
{
    return m_capExceeded || m_forceUpdateRequired || isBlockingMessageShown() || isExhausted();
}

void ServiceMessages::updateUsage(qint64 tokensUsed, qint64 tokenCap, OutOfCreditsPage page)
{
    const bool wasExhausted = isExhausted();
    m_tokensUsed = tokensUsed;
    m_tokenCap = tokenCap;
    if (!wasExhausted && isExhausted() && page == OutOfCreditsPage::Show) {
        Q_EMIT aboutToShowPage();
        m_display.loadContent(
            QStringLiteral("## Out of Credits\n\nYou're out of credits. Upgrade to keep going."));
        m_display.showWindow();
    }
    const double hardLimit = std::trunc(static_cast<double>(tokenCap) * hardLimitFactor);
    setCapExceeded(static_cast<double>(tokensUsed) >= hardLimit);
    if (tokenCap >= 1 && tokensUsed < tokenCap) {
        m_lastQueryHitServerMessage = false;
        if (m_message && m_message->id == QLatin1String(creditsExhaustedId))
            setCurrentAdminMessage(std::nullopt);
    }
    refreshUsageBar();
    Q_EMIT changed();
}

void ServiceMessages::setCapExceeded(bool exceeded)
{
    if (m_capExceeded == exceeded)
        return;
    m_capExceeded = exceeded;
    if (exceeded && !isBlockingMessageShown())
        showCreditsCard(capExceededId);
    else if (!exceeded && m_message && m_message->id == QLatin1String(capExceededId))
        setCurrentAdminMessage(std::nullopt);
}

void ServiceMessages::showLocal(const char *id, const char *type, const QString &header,
                                const QString &body)
{
    AdminMessagePayload message;
    message.id = QLatin1String(id);
    message.type = QLatin1String(type);
    message.headerText = header;
    message.bodyMarkdown = body;
    // A new occurrence expands a card that the user collapsed.
    if (m_collapsedInformationalMessageId == message.id)
        m_collapsedInformationalMessageId.clear();
    setCurrentAdminMessage(message);
}

void ServiceMessages::showCreditsCard(const char *id)
{
    AdminMessagePayload message;
    message.id = QLatin1String(id);
    message.type = QLatin1String(blocking);
    message.headerText = QStringLiteral("Credit Limit Reached");
    message.bodyMarkdown = QStringLiteral(
        "You have used all of your included credits this month.\n\nTo continue using Vantiro, "
        "please upgrade your plan.\n\n*After upgrading, sign out and sign back in to the app to "
        "restore access.*");
    message.actionLabel = QStringLiteral("Upgrade Now");
    message.actionUrl = m_endpoints.billing().toString();
    setCurrentAdminMessage(message);
}

void ServiceMessages::refreshUsageBar()
{
    log(QStringLiteral("Usage bar updated: %1/%2 (%3%), tier=%4")
            .arg(QString::number(m_tokensUsed), QString::number(m_tokenCap),
                 QString::number(usagePercent(), 'f', 1), QLatin1String(tierName(usageTier()))));
}

void ServiceMessages::updateForceUpdateCountdown(const std::optional<AdminMessagePayload> &message)
{
    if (!message) {
        cancelForceUpdateCountdown();
        return;
    }
    if (message->id == QLatin1String(forceUpdateRequiredId))
        return;
    if (!message->isBlocking() || !message->forceUpdateInMinutes) {
        cancelForceUpdateCountdown();
        return;
    }
    if (message->id != m_updateCountdownMessageId)
        startForceUpdateCountdown(*message->forceUpdateInMinutes, message->id);
}

void ServiceMessages::startForceUpdateCountdown(qint64 minutes, const QString &messageId)
{
    m_updateCountdownTimer.stop();
    m_updateCountdownMessageId = messageId;
    // Clamp the server's value to 1000 years, so that the date arithmetic cannot overflow.
    constexpr qint64 maxMinutes = 1000LL * 366 * 24 * 60;
    m_updateDeadline = m_clock().addSecs(std::clamp(minutes, -maxMinutes, maxMinutes) * 60);
    setForceUpdateRequired(false);
    log(QStringLiteral("Forced update countdown started: %1min, message id %2")
            .arg(QString::number(minutes), messageId));
    m_updateCountdownTimer.start(countdownTickMs);
}

void ServiceMessages::checkUpdateDeadline()
{
    if (m_updateDeadline && m_clock() >= *m_updateDeadline) {
        log(QStringLiteral("Forced update deadline reached — blocking captures"));
        setForceUpdateRequired(true);
        m_updateCountdownTimer.stop();
    } else if (m_updateDeadline) {
        // The timer does not run during system sleep: realign the ticks with the deadline.
        const qint64 partialTickMs = m_clock().msecsTo(*m_updateDeadline) % countdownTickMs;
        m_updateCountdownTimer.start(partialTickMs > 0 ? static_cast<int>(partialTickMs)
                                                       : countdownTickMs);
    }
    Q_EMIT changed();
}

void ServiceMessages::cancelForceUpdateCountdown()
{
    m_updateCountdownTimer.stop();
    m_updateDeadline.reset();
    m_updateCountdownMessageId.reset();
    setForceUpdateRequired(false);
}

void ServiceMessages::setForceUpdateRequired(bool required)
{
    if (m_forceUpdateRequired == required)
        return;
    m_forceUpdateRequired = required;
    log(QStringLiteral("forceUpdateRequired -> ") + boolText(required));
}

} // namespace quellora
