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

/// The current service message, the account's token usage, and the checks that reject a query
/// before it is sent. Main thread only.
///
/// At most one message is shown at a time; a local message never replaces a BLOCKING one.
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
    /// Shows @p message, or no card for nullopt, and updates the forced-update countdown.
    void setCurrentAdminMessage(const std::optional<AdminMessagePayload> &message);
    /// The message with the countdown sentence appended, as shown on the card.
    std::optional<AdminMessagePayload> displayedAdminMessage() const;

    /// Whether the current informational message is collapsed to its header.
    bool isInformationalCollapsed() const;
    /// Collapses or expands the informational message; a blocking one cannot be collapsed.
    void toggleInformationalCollapse();

    qint64 tokensUsed() const { return m_tokensUsed; }
    qint64 tokenCap() const { return m_tokenCap; }
    bool capExceeded() const { return m_capExceeded; }
    bool lastQueryHitServerMessage() const { return m_lastQueryHitServerMessage; }
    bool forceUpdateRequired() const { return m_forceUpdateRequired; }
    /// 0 to 100 and above; 0 when the cap is unknown.
    double usagePercent() const;
    UsageTier usageTier() const;
    /// True from 80 % of a known cap.
    bool isUsageIndicatorVisible() const;

    /// Shows the rate limit card for @p resetInSeconds seconds.
    void handleRateLimited(qint64 resetInSeconds);
    /// Stores the token figures and shows the cap card.
    void handleCapExceeded(qint64 tokensUsed, qint64 tokenCap);
    /// Shows the credits card for a query that the backend rejected. @p message is only logged.
    void handleServerMessage(const QString &message);
    /// Shows the card for a near-black capture.
    void handleProtectedContentCapture();
    /// Whether running out of credits loads a page into the response area.
    enum class OutOfCreditsPage {
        Show,
        /// Keep the answer that is being streamed there.
        Withhold,
    };
    /// Stores the account's token figures and shows or removes the credit cards accordingly.
    void updateUsage(qint64 tokensUsed, qint64 tokenCap,
                     OutOfCreditsPage page = OutOfCreditsPage::Show);

    /// Whether queries are rejected.
    bool isBlocked() const;
    /// If the credits are known to be exhausted, shows the credits card and returns true: the
    /// caller must not send the query.
    bool blockIfKnownOverCap();

    /// Starts the forced-update countdown of the message with this id.
    void startForceUpdateCountdown(qint64 minutes, const QString &messageId);
    /// Starts, keeps or cancels the countdown as @p message requires.
    void updateForceUpdateCountdown(const std::optional<AdminMessagePayload> &message);
    /// Stops the countdown and lifts its block.
    void cancelForceUpdateCountdown();
    /// Handles a countdown tick.
    void checkUpdateDeadline();

Q_SIGNALS:
    /// State shown by the panels or the settings sheet has changed.
    void changed();
    /// Emitted before this object replaces the content of the response area.
    void aboutToShowPage();

private:
    bool isBlockingMessageShown() const { return m_message && m_message->isBlocking(); }
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
