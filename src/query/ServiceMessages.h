#pragma once

#include "backend/Records.h"
#include "base/AppConfig.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>

namespace quellora {

class AnswerDisplay;

/// The service message on show, the account's usage figures, and the tests that stop a query
/// before it is sent. Main thread only.
///
/// At most one message shows at a time; a BLOCKING one is never replaced by a locally made one.
class ServiceMessages : public QObject
{
    Q_OBJECT
public:
    using Clock = std::function<QDateTime()>;

    enum class UsageTier { Grey, Amber, Red };
    Q_ENUM(UsageTier)

    static constexpr auto rateLimitedId = "local_rate_limited";
    static constexpr auto protectedContentId = "local_protected_content";
    static constexpr auto creditsExhaustedId = "local_credits_exhausted";
    static constexpr auto capExceededId = "local_cap_exceeded";
    /// Reserved for a locally shown forced-update message; exempt from the countdown.
    static constexpr auto forceUpdateRequiredId = "local_force_update_required";

    ServiceMessages(AnswerDisplay &display, BackendEndpoints endpoints,
                    Clock clock = QDateTime::currentDateTimeUtc, QObject *parent = nullptr);

    const std::optional<AdminMessagePayload> &currentAdminMessage() const { return m_message; }
    /// Shows @p message (none: no card) and re-evaluates the forced-update countdown.
    void setCurrentAdminMessage(const std::optional<AdminMessagePayload> &message);
    /// The message as the card shows it: with the countdown sentence added.
    std::optional<AdminMessagePayload> displayedAdminMessage() const;

    /// An informational message on show is collapsed to its header.
    bool isInformationalCollapsed() const;
    /// Collapses or expands the informational message; a blocking one cannot be collapsed.
    void toggleInformationalCollapse();

    qint64 tokensUsed() const { return m_tokensUsed; }
    qint64 tokenCap() const { return m_tokenCap; }
    bool capExceeded() const { return m_capExceeded; }
    bool lastQueryHitServerMessage() const { return m_lastQueryHitServerMessage; }
    bool forceUpdateRequired() const { return m_forceUpdateRequired; }
    /// 0 when no cap is known.
    double usagePercent() const;
    UsageTier usageTier() const;
    /// The indicator shows only from 80 % of a known cap.
    bool isUsageIndicatorVisible() const;

    void handleRateLimited(qint64 resetInSeconds);
    void handleCapExceeded(qint64 tokensUsed, qint64 tokenCap);
    /// The backend refused the query; its own text is logged, never shown.
    void handleServerMessage(const QString &message);
    void handleProtectedContentCapture();
    /// What happens to the response area when the credits turn out to be spent.
    enum class OutOfCreditsPage {
        Show,
        /// An answer is being written there: it must not be lost.
        Withhold,
    };
    void updateUsage(qint64 tokensUsed, qint64 tokenCap,
                     OutOfCreditsPage page = OutOfCreditsPage::Show);

    /// Queries are refused.
    bool isBlocked() const;
    /// Refuses a query without a round trip when the credits are known to be spent; shows the card.
    bool blockIfKnownOverCap();

    void startForceUpdateCountdown(qint64 minutes, const QString &messageId);
    void updateForceUpdateCountdown(const std::optional<AdminMessagePayload> &message);
    void cancelForceUpdateCountdown();
    /// Tick of the countdown.
    void checkUpdateDeadline();

Q_SIGNALS:
    /// Anything that the panels or an open settings sheet show has changed.
    void changed();
    /// A page of this object's own is about to take the place of what the response area shows.
    void aboutToShowPage();

private:
    bool isBlockingOnShow() const { return m_message && m_message->isBlocking(); }
    bool isExhausted() const;
    void showLocal(const char *id, const char *type, const QString &header, const QString &body);
    void showCreditsCard(const char *id);
    void setCapExceeded(bool exceeded);
    void setForceUpdateRequired(bool required);
    void refreshUsageBar();
    void rateLimitEnded();

    AnswerDisplay &m_display;
    BackendEndpoints m_endpoints;
    Clock m_clock;
    std::optional<AdminMessagePayload> m_message;
    QString m_collapsedInformationalMessageId;
    qint64 m_tokensUsed = 0;
    qint64 m_tokenCap = 0;
    bool m_capExceeded = false;
    bool m_lastQueryHitServerMessage = false;
    bool m_forceUpdateRequired = false;
    QTimer m_rateLimitedTimer;
    QTimer m_updateCountdownTimer;
    std::optional<QDateTime> m_updateDeadline;
    std::optional<QString> m_updateCountdownMessageId;
};

} // namespace quellora
