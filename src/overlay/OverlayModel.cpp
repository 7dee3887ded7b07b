#include "overlay/OverlayModel.h"

#include "overlay/OverlayGeometry.h"

#include <QElapsedTimer>

#include <algorithm>
#include <cmath>

namespace quellora {

namespace {

constexpr double usageBadgeThreshold = 80.0;
constexpr double usageRedThreshold = 95.0;
constexpr qint64 msPerSecond = 1000;
constexpr qsizetype maximumTitleLength = 2000;

std::function<qint64()> monotonicClock()
{
    QElapsedTimer timer;
    timer.start();
    return [timer] { return timer.elapsed(); };
}

} // namespace

OverlayModel::OverlayModel(std::function<qint64()> clock, QObject *parent)
    : QObject(parent), m_clock(clock ? std::move(clock) : monotonicClock())
{
    m_statusTimer.setParent(this);
    m_statusTimer.setSingleShot(true);
    connect(&m_statusTimer, &QTimer::timeout, this, &OverlayModel::tick);
    m_noticeTimer.setParent(this);
    m_noticeTimer.setObjectName(QStringLiteral("noticeTimer"));
    m_noticeTimer.setSingleShot(true);
    m_noticeTimer.setInterval(noticeMs);
    connect(&m_noticeTimer, &QTimer::timeout, this, &OverlayModel::clearNotice);
}

void OverlayModel::setCurrentAlpha(double alpha)
{
    const double clamped = std::clamp(alpha, 0.0, 1.0);
    if (clamped == m_currentAlpha)
        return;
    m_currentAlpha = clamped;
    Q_EMIT currentAlphaChanged();
}

void OverlayModel::setAppliedTheme(AppTheme theme)
{
    if (theme == m_theme)
        return;
    m_theme = theme;
    Q_EMIT appliedThemeChanged();
}

QColor OverlayModel::responseColor() const
{
    QColor color = isLightTheme() ? QColor(0xf7, 0xf5, 0xf0) : QColor(0x1c, 0x1e, 0x24);
    color.setAlphaF(0.93f);
    return color;
}

void OverlayModel::setCompositing(bool isCompositing)
{
    if (isCompositing == m_isCompositing)
        return;
    m_isCompositing = isCompositing;
    Q_EMIT isCompositingChanged();
}

void OverlayModel::setTitle(const QString &title)
{
    // Truncated because laying out a very long title would block the UI.
    const QString singleLine = title.left(maximumTitleLength).simplified();
    if (singleLine == m_title)
        return;
    m_title = singleLine;
    Q_EMIT stripChanged();
}

void OverlayModel::setSaveState(SaveState state, const QString &problem)
{
    if (state == m_saveState && problem == m_saveProblem)
        return;
    m_saveState = state;
    m_saveProblem = problem;
    Q_EMIT stripChanged();
}

void OverlayModel::setActivity(Activity activity)
{
    if (activity == m_activity)
        return;
    const bool wasCounting = isAnswering();
    m_activity = activity;
    if (activity != Activity::Idle)
        m_isStoppedShown = false;
    if (activity == Activity::Waiting || (isAnswering() && !wasCounting)) {
        m_startedAt = m_clock();
        m_seconds = 0;
    }
    scheduleTick();
    Q_EMIT stripChanged();
    Q_EMIT secondsChanged();
}

void OverlayModel::showStopped()
{
    m_activity = Activity::Idle;
    m_isStoppedShown = true;
    m_startedAt = m_clock();
    scheduleTick();
    Q_EMIT stripChanged();
    Q_EMIT secondsChanged();
}

void OverlayModel::setEndVisible(bool isVisible)
{
    // After the answer it stays on offer until the reader has seen the end.
    const bool isOffered = !isVisible && (m_isLatestOffered || m_activity == Activity::Streaming);
    if (isOffered == m_isLatestOffered)
        return;
    m_isLatestOffered = isOffered;
    Q_EMIT isLatestOfferedChanged();
}

void OverlayModel::showLatest()
{
    if (m_isLatestOffered)
        Q_EMIT latestRequested();
}

void OverlayModel::setTakesClicks(bool takesClicks)
{
    if (takesClicks == m_takesClicks)
        return;
    m_takesClicks = takesClicks;
    Q_EMIT clicksChanged();
    updateClickThrough();
}

void OverlayModel::setPageClickable(bool isClickable)
{
    if (isClickable == m_hasClickablePage)
        return;
    m_hasClickablePage = isClickable;
    Q_EMIT clicksChanged();
}

void OverlayModel::setSendingBlocked(bool isBlocked)
{
    if (isBlocked == m_isBlocked)
        return;
    m_isBlocked = isBlocked;
    Q_EMIT stripChanged();
}

void OverlayModel::setThreadCovered(bool isCovered)
{
    if (isCovered == m_isThreadCovered)
        return;
    m_isThreadCovered = isCovered;
    Q_EMIT stripChanged();
}

void OverlayModel::setHasAnswer(bool hasAnswer)
{
    if (hasAnswer == m_hasAnswer)
        return;
    m_hasAnswer = hasAnswer;
    Q_EMIT stripChanged();
}

bool OverlayModel::canAskAgain() const
{
    return m_isQuestionKnown && m_activity == Activity::Idle && !m_isBlocked;
}

void OverlayModel::setQuestionKnown(bool isKnown)
{
    if (isKnown == m_isQuestionKnown)
        return;
    m_isQuestionKnown = isKnown;
    Q_EMIT stripChanged();
}

int OverlayModel::versionCount() const
{
    return m_activity == Activity::Idle && !m_isThreadCovered ? m_versionCount : 1;
}

void OverlayModel::setVersions(int shown, int count)
{
    if (shown == m_shownVersion && count == m_versionCount)
        return;
    m_shownVersion = shown;
    m_versionCount = count;
    Q_EMIT stripChanged();
}

void OverlayModel::retry()
{
    if (canAskAgain())
        Q_EMIT retryRequested();
}

void OverlayModel::editQuestion()
{
    if (canAskAgain())
        Q_EMIT editRequested();
}

void OverlayModel::showVersion(int position)
{
    if (position >= 0 && position < versionCount() && position != m_shownVersion)
        Q_EMIT versionRequested(position);
}

OverlayModel::Status OverlayModel::status() const
{
    switch (m_activity) {
    case Activity::Capturing:
        return Status::Capturing;
    case Activity::Waiting:
        return Status::Waiting;
    case Activity::Streaming:
        return Status::Streaming;
    case Activity::Idle:
        break;
    }
    if (m_isStoppedShown)
        return Status::Stopped;
    if (m_isBlocked)
        return Status::Blocked;
    return m_hasAnswer ? Status::Answer : Status::Ready;
}

QString OverlayModel::statusText() const
{
    switch (status()) {
    case Status::Capturing:
        return QStringLiteral("Capturing screen\u2026");
    case Status::Waiting:
        return QStringLiteral("Waiting for answer\u2026");
    case Status::Streaming:
        return QStringLiteral("Answering\u2026");
    case Status::Stopped:
        return QStringLiteral("Stopped");
    case Status::Blocked:
        return QStringLiteral("Sending is blocked");
    case Status::Ready:
    case Status::Answer:
        break;
    }
    return {};
}

QString OverlayModel::secondsText() const
{
    return isAnswering() ? QStringLiteral("%1 s").arg(m_seconds) : QString();
}

bool OverlayModel::isAnswering() const
{
    return m_activity == Activity::Waiting || m_activity == Activity::Streaming;
}

void OverlayModel::scheduleTick()
{
    const qint64 elapsed = m_clock() - m_startedAt;
    if (isAnswering())
        m_statusTimer.start(
            int(std::max<qint64>((elapsed / msPerSecond + 1) * msPerSecond - elapsed, 1)));
    else if (m_isStoppedShown)
        m_statusTimer.start(int(std::max<qint64>(stoppedNoticeMs - elapsed, 1)));
    else
        m_statusTimer.stop();
}

void OverlayModel::tick()
{
    const qint64 elapsed = m_clock() - m_startedAt;
    if (isAnswering()) {
        const qint64 seconds = elapsed / msPerSecond;
        if (seconds != m_seconds) {
            m_seconds = seconds;
            Q_EMIT secondsChanged();
        }
    } else if (m_isStoppedShown && elapsed >= stoppedNoticeMs) {
        m_isStoppedShown = false;
        Q_EMIT stripChanged();
    }
    scheduleTick();
}

void OverlayModel::showNotice(const QString &text)
{
    startNotice(text, true);
}

void OverlayModel::showProgress(const QString &text)
{
    startNotice(text, false);
}

void OverlayModel::startNotice(const QString &text, bool isWarning)
{
    // Clear first: the same notice is shown, and read out, once more.
    clearNotice();
    m_notice = text.simplified();
    m_isNoticeWarning = isWarning;
    if (m_notice.isEmpty())
        return;
    m_noticeTimer.start();
    Q_EMIT noticeChanged();
}

void OverlayModel::clearNotice()
{
    m_noticeTimer.stop();
    if (m_notice.isEmpty())
        return;
    m_notice.clear();
    Q_EMIT noticeChanged();
}

void OverlayModel::setUsage(std::optional<double> percent)
{
    if (percent == m_usage)
        return;
    m_usage = percent;
    Q_EMIT usageChanged();
}

OverlayModel::UsageTier OverlayModel::usageTier() const
{
    if (!isUsageShown())
        return UsageTier::Grey;
    return *m_usage >= usageRedThreshold ? UsageTier::Red : UsageTier::Amber;
}

bool OverlayModel::isUsageShown() const
{
    return m_usage && *m_usage >= usageBadgeThreshold;
}

int OverlayModel::usagePercent() const
{
    return m_usage ? int(std::floor(std::clamp(*m_usage, 0.0, 9999.0))) : 0;
}

void OverlayModel::setStopShortcut(const QString &display)
{
    if (display == m_stopShortcut)
        return;
    m_stopShortcut = display;
    Q_EMIT stripChanged();
}

void OverlayModel::setMenuOpen(bool isOpen)
{
    if (isOpen == m_isMenuOpen)
        return;
    m_isMenuOpen = isOpen;
    Q_EMIT isMenuOpenChanged();
    updateClickThrough();
}

void OverlayModel::setSheetOpen(bool isOpen)
{
    if (isOpen == m_isSheetOpen)
        return;
    m_isSheetOpen = isOpen;
    updateClickThrough();
}

void OverlayModel::setLooking(bool isLooking)
{
    m_isLooking = isLooking;
    updateClickThrough();
}

void OverlayModel::setWindowSize(const QSizeF &size)
{
    if (size == m_windowSize)
        return;
    m_windowSize = size;
    Q_EMIT windowSizeChanged();
    Q_EMIT geometryChanged();
    updateClickThrough();
}

void OverlayModel::setBottomPanelsHeight(double points)
{
    if (points == m_bottomPanelsHeight)
        return;
    m_bottomPanelsHeight = points;
    Q_EMIT geometryChanged();
    updateClickThrough();
}

void OverlayModel::setTextScale(double factor)
{
    if (factor == m_textScale)
        return;
    m_textScale = factor;
    // Whether the window is compact and how high the panels may be depends on it as well.
    Q_EMIT windowSizeChanged();
    Q_EMIT geometryChanged();
    updateClickThrough();
}

void OverlayModel::setAnswerTextScale(double factor)
{
    if (factor == m_answerTextScale)
        return;
    m_answerTextScale = factor;
    Q_EMIT answerTextScaleChanged();
}

double OverlayModel::stripHeight() const
{
    return OverlayGeometry::scaledStripHeight(m_textScale);
}

double OverlayModel::availablePanelsHeight() const
{
    return OverlayGeometry::availablePanelsHeight(m_windowSize, m_textScale);
}

bool OverlayModel::isCompact() const
{
    return OverlayGeometry::isCompact(m_windowSize, m_textScale);
}

QRectF OverlayModel::responseRect() const
{
    return OverlayGeometry::responseRect(m_windowSize, m_bottomPanelsHeight, m_textScale);
}

QRect OverlayModel::clickThroughRect() const
{
    if (m_isMenuOpen || m_isSheetOpen || m_isLooking || m_takesClicks)
        return {};
    // Round inward, so that no adjacent control becomes click-through at its edge.
    const QRectF rect = responseRect();
    const int left = int(std::ceil(rect.left()));
    const int top = int(std::ceil(rect.top()));
    return {left, top, int(std::floor(rect.right())) - left, int(std::floor(rect.bottom())) - top};
}

void OverlayModel::updateClickThrough()
{
    const QRect rect = clickThroughRect();
    if (rect == m_lastClickThroughRect)
        return;
    m_lastClickThroughRect = rect;
    Q_EMIT clickThroughRectChanged();
}

void OverlayModel::moveSlider(double value)
{
    if (value != m_currentAlpha)
        Q_EMIT sliderMoved(value);
}

void OverlayModel::stop()
{
    if (canStop())
        Q_EMIT stopRequested();
}

void OverlayModel::backToThread()
{
    if (m_isThreadCovered)
        Q_EMIT backToThreadRequested();
}

void OverlayModel::setUndoText(const QString &text)
{
    const QString singleLine = text.left(maximumTitleLength).simplified();
    if (singleLine == m_undoText)
        return;
    m_undoText = singleLine;
    Q_EMIT undoTextChanged();
}

void OverlayModel::undo()
{
    if (!m_undoText.isEmpty())
        Q_EMIT undoRequested();
}

void OverlayModel::retrySaving()
{
    if (m_saveState == SaveState::Failed)
        Q_EMIT retrySavingRequested();
}

void OverlayModel::copyAnswer()
{
    if (m_hasAnswer)
        Q_EMIT copyAnswerRequested();
}

} // namespace quellora
