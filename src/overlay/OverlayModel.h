#pragma once

#include "page/AppTheme.h"

#include <QColor>
#include <QObject>
#include <QRect>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <optional>

namespace quellora {

/// State of the overlay's frame: opacity, theme, status strip and layout. The owner calls the
/// setters; the *Requested signals report user actions. Timers run only while an answer is pending
/// or streaming, or while "Stopped" or a notice is shown. Main thread only.
class OverlayModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Provided by the overlay")

    Q_PROPERTY(double currentAlpha READ currentAlpha NOTIFY currentAlphaChanged)
    Q_PROPERTY(bool isLightTheme READ isLightTheme NOTIFY appliedThemeChanged)
    Q_PROPERTY(QColor responseColor READ responseColor NOTIFY appliedThemeChanged)
    Q_PROPERTY(QColor leftBorderColor READ leftBorderColor CONSTANT)
    Q_PROPERTY(bool isCompositing READ isCompositing NOTIFY isCompositingChanged)

    Q_PROPERTY(QString title READ title NOTIFY stripChanged)
    Q_PROPERTY(SaveState saveState READ saveState NOTIFY stripChanged)
    Q_PROPERTY(QString saveProblem READ saveProblem NOTIFY stripChanged)
    Q_PROPERTY(Status status READ status NOTIFY stripChanged)
    Q_PROPERTY(QString statusText READ statusText NOTIFY stripChanged)
    Q_PROPERTY(QString secondsText READ secondsText NOTIFY secondsChanged)
    Q_PROPERTY(bool canStop READ canStop NOTIFY stripChanged)
    Q_PROPERTY(bool isLatestOffered READ isLatestOffered NOTIFY isLatestOfferedChanged)
    Q_PROPERTY(bool takesClicks READ takesClicks NOTIFY clicksChanged)
    Q_PROPERTY(bool areClicksOffered READ areClicksOffered NOTIFY clicksChanged)
    Q_PROPERTY(bool canAskAgain READ canAskAgain NOTIFY stripChanged)
    Q_PROPERTY(int shownVersion READ shownVersion NOTIFY stripChanged)
    Q_PROPERTY(int versionCount READ versionCount NOTIFY stripChanged)
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(bool isNoticeWarning READ isNoticeWarning NOTIFY noticeChanged)
    Q_PROPERTY(QString undoText READ undoText NOTIFY undoTextChanged)
    Q_PROPERTY(QString stopShortcut READ stopShortcut NOTIFY stripChanged)
    Q_PROPERTY(bool isThreadCovered READ isThreadCovered NOTIFY stripChanged)
    Q_PROPERTY(UsageTier usageTier READ usageTier NOTIFY usageChanged)
    Q_PROPERTY(bool isUsageShown READ isUsageShown NOTIFY usageChanged)
    Q_PROPERTY(int usagePercent READ usagePercent NOTIFY usageChanged)

    Q_PROPERTY(bool isMenuOpen READ isMenuOpen NOTIFY isMenuOpenChanged)
    Q_PROPERTY(bool isCompact READ isCompact NOTIFY windowSizeChanged)
    Q_PROPERTY(QRectF responseRect READ responseRect NOTIFY geometryChanged)
    /// Set by the view.
    Q_PROPERTY(double textScale READ textScale WRITE setTextScale NOTIFY geometryChanged)
    /// Factor of the answer's text size, beside that of the desktop.
    Q_PROPERTY(double answerTextScale READ answerTextScale NOTIFY answerTextScaleChanged)
    Q_PROPERTY(double stripHeight READ stripHeight NOTIFY geometryChanged)

public:
    enum class Activity { Idle, Capturing, Waiting, Streaming };
    Q_ENUM(Activity)
    enum class Status { Ready, Capturing, Waiting, Streaming, Stopped, Blocked, Answer };
    Q_ENUM(Status)
    /// Save state of the current thread; None if it is not stored.
    enum class SaveState { None, Saving, Saved, Failed };
    Q_ENUM(SaveState)
    enum class UsageTier { Grey, Amber, Red };
    Q_ENUM(UsageTier)

    /// How long "Stopped" is shown, in milliseconds.
    static constexpr int stoppedNoticeMs = 4000;
    /// How long a notice is shown, in milliseconds.
    static constexpr int noticeMs = 6000;

    /// @param clock returns monotonic time in milliseconds; empty for the system clock
    explicit OverlayModel(std::function<qint64()> clock = {}, QObject *parent = nullptr);

    double currentAlpha() const { return m_currentAlpha; }
    /// Sets the opacity of the response area's background, clamped to 0..1.
    void setCurrentAlpha(double alpha);
    void setAppliedTheme(AppTheme theme);
    AppTheme appliedTheme() const { return m_theme; }
    bool isLightTheme() const { return m_theme == AppTheme::Light; }
    /// Colour of the two background layers behind the answer.
    QColor responseColor() const;
    QColor leftBorderColor() const { return QColor::fromRgbF(0.07f, 0.07f, 0.11f, 0.9f); }
    bool isCompositing() const { return m_isCompositing; }
    /// Without a compositor the panel is drawn opaque and square.
    void setCompositing(bool isCompositing);

    QString title() const { return m_title; }
    /// Sets the thread's title, reduced to one line; "Ready" is shown if it is empty.
    void setTitle(const QString &title);
    SaveState saveState() const { return m_saveState; }
    /// Why saving the thread failed; empty unless the state is Failed.
    QString saveProblem() const { return m_saveProblem; }
    void setSaveState(SaveState state, const QString &problem = {});
    /// Waiting restarts the seconds counter; changing from Waiting to Streaming does not.
    void setActivity(Activity activity);
    /// Shows "Stopped" for stoppedNoticeMs or until the next activity starts.
    void showStopped();
    void setSendingBlocked(bool isBlocked);
    /// Whether another page, such as an error, is shown instead of the current thread.
    bool isThreadCovered() const { return m_isThreadCovered; }
    void setThreadCovered(bool isCovered);
    void setHasAnswer(bool hasAnswer);
    /// Whether the last question can be asked again or edited: nothing is under way and sending is
    /// not blocked.
    bool canAskAgain() const;
    void setQuestionKnown(bool isKnown);
    /// Position of the version of the last turn that is on show, from 0.
    int shownVersion() const { return m_shownVersion; }
    /// Number of versions of the last turn; versions are offered if there are several, nothing is
    /// under way and no message covers the thread.
    int versionCount() const;
    void setVersions(int shown, int count);
    /// What the right end of the strip shows, in order of precedence: activity, "Stopped", blocked
    /// sending, the copy button of an answer, nothing.
    Status status() const;
    QString statusText() const;
    /// Elapsed time, e.g. "2 s", while waiting or streaming; else empty.
    QString secondsText() const;
    /// Whether there is an activity that Stop can cancel.
    bool canStop() const { return m_activity != Activity::Idle; }
    /// Whether the reader has scrolled away from the end of an answer that grows, or that has ended
    /// since.
    bool isLatestOffered() const { return m_isLatestOffered; }
    /// @param isVisible whether the end of the page is visible
    void setEndVisible(bool isVisible);
    /// Whether clicks and the wheel act on the answer. Otherwise they pass through it to the window
    /// underneath.
    bool takesClicks() const { return m_takesClicks; }
    void setTakesClicks(bool takesClicks);
    /// Whether the strip has the switch for takesClicks(): while the page shows something to click,
    /// and while the switch is on.
    bool areClicksOffered() const { return m_hasClickablePage || m_takesClicks; }
    /// @param isClickable whether the page shows more than the hint
    void setPageClickable(bool isClickable);
    /// The notice currently shown; empty if none.
    QString notice() const { return m_notice; }
    /// Shows @p text, usually why a user action failed, instead of the title for noticeMs. Does not
    /// affect the status, Stop or the thread. Replaces the current notice, with a change of its own
    /// even if the text is the same. An empty text removes the notice.
    void showNotice(const QString &text);
    /// As showNotice(), for what the user asked for and what goes well.
    void showProgress(const QString &text);
    bool isNoticeWarning() const { return m_isNoticeWarning; }
    /// What the user has removed and can bring back by undo(); empty for nothing.
    QString undoText() const { return m_undoText; }
    void setUndoText(const QString &text);
    QString stopShortcut() const { return m_stopShortcut; }
    /// @param display shortcut that stops an answer, in display form
    void setStopShortcut(const QString &display);
    /// @param percent used share of the allowance; nullopt if the allowance is unknown
    void setUsage(std::optional<double> percent);
    UsageTier usageTier() const;
    bool isUsageShown() const;
    /// Whole percent, rounded down.
    int usagePercent() const;

    bool isMenuOpen() const { return m_isMenuOpen; }
    void setMenuOpen(bool isOpen);
    /// Whether a sheet covers the answer, which disables click-through.
    void setSheetOpen(bool isOpen);
    /// Whether the question for a captured picture covers the panel, which does the same.
    void setLooking(bool isLooking);

    /// Size of the panel in points.
    void setWindowSize(const QSizeF &size);
    void setBottomPanelsHeight(double points);
    double bottomPanelsHeight() const { return m_bottomPanelsHeight; }
    double textScale() const { return m_textScale; }
    /// Factor of the text size, on which the layout depends.
    void setTextScale(double factor);
    double answerTextScale() const { return m_answerTextScale; }
    void setAnswerTextScale(double factor);
    double stripHeight() const;
    double availablePanelsHeight() const;
    bool isCompact() const;
    QRectF responseRect() const;
    /// The rectangle that clicks pass through: responseRect() rounded inward to whole points; empty
    /// while the menu or a sheet is open and while takesClicks().
    QRect clickThroughRect() const;

    // Called by the view.
    Q_INVOKABLE void close() { Q_EMIT closeRequested(); }
    Q_INVOKABLE void minimize() { Q_EMIT minimizeRequested(); }
    Q_INVOKABLE void zoom() { Q_EMIT zoomRequested(); }
    Q_INVOKABLE void moveSlider(double value);
    Q_INVOKABLE void toggleMenu() { Q_EMIT menuToggled(); }
    /// No effect unless canStop().
    Q_INVOKABLE void stop();
    /// No effect without an answer.
    Q_INVOKABLE void copyAnswer();
    /// No effect unless saving has failed.
    Q_INVOKABLE void retrySaving();
    /// No effect unless isThreadCovered().
    Q_INVOKABLE void backToThread();
    /// Scrolls to the end of the answer. No effect unless isLatestOffered().
    Q_INVOKABLE void showLatest();
    Q_INVOKABLE void toggleClicks() { Q_EMIT clicksToggled(); }
    /// Asks the last question again. No effect unless canAskAgain(), like editQuestion().
    Q_INVOKABLE void retry();
    Q_INVOKABLE void editQuestion();
    /// Shows the version of the last turn at @p position; no effect if there is none.
    Q_INVOKABLE void showVersion(int position);
    /// Requests larger (1), smaller (-1) or normal (0) text in the answer.
    Q_INVOKABLE void changeAnswerText(int direction) { Q_EMIT answerTextRequested(direction); }
    /// Brings back what was removed last. No effect without an undoText().
    Q_INVOKABLE void undo();
    Q_INVOKABLE void clickUsage() { Q_EMIT usageClicked(); }

Q_SIGNALS:
    void closeRequested();
    void minimizeRequested();
    void zoomRequested();
    void sliderMoved(double value);
    void menuToggled();
    void stopRequested();
    void answerTextRequested(int direction);
    void answerTextScaleChanged();
    void copyAnswerRequested();
    void retrySavingRequested();
    void backToThreadRequested();
    void usageClicked();
    void latestRequested();
    void clicksToggled();
    /// Screen readers are to read out @p text.
    void announced(const QString &text);
    void retryRequested();
    void editRequested();
    void versionRequested(int position);

    void currentAlphaChanged();
    void appliedThemeChanged();
    void isCompositingChanged();
    void stripChanged();
    void secondsChanged();
    void isLatestOfferedChanged();
    void clicksChanged();
    void noticeChanged();
    void undoRequested();
    void undoTextChanged();
    void usageChanged();
    void isMenuOpenChanged();
    void windowSizeChanged();
    /// The window size, the height of the bottom panels or the text size has changed.
    void geometryChanged();
    void clickThroughRectChanged();

private:
    bool isAnswering() const;
    void tick();
    void scheduleTick();
    void startNotice(const QString &text, bool isWarning);
    void clearNotice();
    /// Emits clickThroughRectChanged() if the rectangle differs from the last one reported.
    void updateClickThrough();

    std::function<qint64()> m_clock;
    QTimer m_statusTimer;
    QTimer m_noticeTimer;
    double m_currentAlpha = 0.88;
    AppTheme m_theme = AppTheme::Dark;
    bool m_isCompositing = true;
    QString m_title;
    SaveState m_saveState = SaveState::None;
    QString m_saveProblem;
    Activity m_activity = Activity::Idle;
    qint64 m_startedAt = 0;
    qint64 m_seconds = 0;
    bool m_isStoppedShown = false;
    bool m_isLatestOffered = false;
    bool m_takesClicks = false;
    bool m_hasClickablePage = false;
    bool m_isBlocked = false;
    bool m_isThreadCovered = false;
    bool m_hasAnswer = false;
    bool m_isQuestionKnown = false;
    int m_shownVersion = 0;
    int m_versionCount = 1;
    QString m_notice;
    bool m_isNoticeWarning = true;
    QString m_undoText;
    QString m_stopShortcut;
    std::optional<double> m_usage;
    bool m_isMenuOpen = false;
    bool m_isSheetOpen = false;
    bool m_isLooking = false;
    QSizeF m_windowSize;
    double m_bottomPanelsHeight = 0;
    double m_textScale = 1;
    double m_answerTextScale = 1;
    QRect m_lastClickThroughRect;
};

} // namespace quellora
