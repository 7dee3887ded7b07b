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

/// What the overlay's frame shows: opacity, theme, the strip below the control bar, and the
/// rectangle of the answer. The owner sets it; the signals say what the user asked for. Main thread
/// only. Its timers run only while an answer is under way, "Stopped" or a notice is shown.
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
    Q_PROPERTY(QString notice READ notice NOTIFY noticeChanged)
    Q_PROPERTY(QString stopShortcut READ stopShortcut NOTIFY stripChanged)
    Q_PROPERTY(bool isThreadCovered READ isThreadCovered NOTIFY stripChanged)
    Q_PROPERTY(UsageTier usageTier READ usageTier NOTIFY usageChanged)
    Q_PROPERTY(bool isUsageShown READ isUsageShown NOTIFY usageChanged)
    Q_PROPERTY(int usagePercent READ usagePercent NOTIFY usageChanged)

    Q_PROPERTY(bool isMenuOpen READ isMenuOpen NOTIFY isMenuOpenChanged)
    Q_PROPERTY(bool isCompact READ isCompact NOTIFY windowSizeChanged)
    Q_PROPERTY(QRectF responseRect READ responseRect NOTIFY geometryChanged)

public:
    enum class Activity { Idle, Capturing, Waiting, Streaming };
    Q_ENUM(Activity)
    enum class Status { Ready, Capturing, Waiting, Streaming, Stopped, Blocked, Answer };
    Q_ENUM(Status)
    /// How far the thread is on the disk; None where it is not kept.
    enum class SaveState { None, Saving, Saved, Failed };
    Q_ENUM(SaveState)
    enum class UsageTier { Grey, Amber, Red };
    Q_ENUM(UsageTier)

    /// How long "Stopped" stays, in milliseconds.
    static constexpr int stoppedNoticeMs = 4000;
    /// How long a notice stays, in milliseconds.
    static constexpr int noticeMs = 6000;

    /// @param clock monotonic milliseconds; empty uses the system's
    explicit OverlayModel(std::function<qint64()> clock = {}, QObject *parent = nullptr);

    double currentAlpha() const { return m_currentAlpha; }
    /// Opacity of the response area's background, clamped to 0..1.
    void setCurrentAlpha(double alpha);
    void setAppliedTheme(AppTheme theme);
    AppTheme appliedTheme() const { return m_theme; }
    bool isLightTheme() const { return m_theme == AppTheme::Light; }
    /// Colour of the backdrop and of the background layer behind the answer.
    QColor responseColor() const;
    QColor leftBorderColor() const { return QColor::fromRgbF(0.07f, 0.07f, 0.11f, 0.9f); }
    bool isCompositing() const { return m_isCompositing; }
    /// Without a compositor the panel is drawn opaque and square.
    void setCompositing(bool isCompositing);

    QString title() const { return m_title; }
    /// Title of the thread; empty shows "Ready".
    void setTitle(const QString &title);
    SaveState saveState() const { return m_saveState; }
    /// Why the thread could not be saved; empty unless it could not.
    QString saveProblem() const { return m_saveProblem; }
    void setSaveState(SaveState state, const QString &problem = {});
    /// Waiting starts the seconds at 0; Streaming goes on counting.
    void setActivity(Activity activity);
    Activity activity() const { return m_activity; }
    /// Shows "Stopped" for a while, until something else happens.
    void showStopped();
    void setSendingBlocked(bool isBlocked);
    /// A page that is not the thread's, such as an error, stands where the thread was.
    bool isThreadCovered() const { return m_isThreadCovered; }
    void setThreadCovered(bool isCovered);
    bool hasAnswer() const { return m_hasAnswer; }
    void setHasAnswer(bool hasAnswer);
    /// What the right end of the strip shows: the activity, else "Stopped", else the block, else
    /// the answer's copy button.
    Status status() const;
    QString statusText() const;
    /// "2 s" while waiting or streaming, else empty.
    QString secondsText() const;
    /// Something is under way that Stop ends.
    bool canStop() const { return m_activity != Activity::Idle; }
    /// What showNotice() was told last, for as long as it is shown; else empty.
    QString notice() const { return m_notice; }
    /// Says in the place of the title, for a while, that something the user asked for did not
    /// happen. The status, Stop and the thread are left as they are; a newer notice replaces an
    /// older one. Assistive programs announce it, also when it is the same text once more.
    void showNotice(const QString &text);
    QString stopShortcut() const { return m_stopShortcut; }
    /// @param display the keys that stop an answer, in their display form
    void setStopShortcut(const QString &display);
    /// @param percent used share of the allowance; nothing when no allowance is known
    void setUsage(std::optional<double> percent);
    UsageTier usageTier() const;
    bool isUsageShown() const;
    /// Whole percent, rounded down.
    int usagePercent() const;

    bool isMenuOpen() const { return m_isMenuOpen; }
    void setMenuOpen(bool isOpen);
    /// A side sheet covers the answer, which then takes clicks.
    void setSheetOpen(bool isOpen);

    /// Size of the panel in points.
    void setWindowSize(const QSizeF &size);
    void setBottomPanelsHeight(double points);
    double bottomPanelsHeight() const { return m_bottomPanelsHeight; }
    double availablePanelsHeight() const;
    bool isCompact() const;
    QRectF responseRect() const;
    /// responseRect() in whole points while clicks pass through it; empty while the menu or a sheet
    /// is open.
    QRect clickThroughRect() const;

    // What the view asks for.
    Q_INVOKABLE void close() { Q_EMIT closeRequested(); }
    Q_INVOKABLE void minimize() { Q_EMIT minimizeRequested(); }
    Q_INVOKABLE void zoom() { Q_EMIT zoomRequested(); }
    Q_INVOKABLE void moveSlider(double value);
    Q_INVOKABLE void toggleMenu() { Q_EMIT menuToggled(); }
    /// Nothing while no answer is under way.
    Q_INVOKABLE void stop();
    Q_INVOKABLE void copyAnswer();
    /// Nothing unless the thread could not be saved.
    Q_INVOKABLE void retrySaving();
    /// Nothing while the thread is not covered.
    Q_INVOKABLE void backToThread();
    Q_INVOKABLE void clickUsage() { Q_EMIT usageClicked(); }

Q_SIGNALS:
    void closeRequested();
    void minimizeRequested();
    void zoomRequested();
    void sliderMoved(double value);
    void menuToggled();
    void stopRequested();
    void copyAnswerRequested();
    void retrySavingRequested();
    void backToThreadRequested();
    void usageClicked();

    void currentAlphaChanged();
    void appliedThemeChanged();
    void isCompositingChanged();
    void stripChanged();
    void secondsChanged();
    void noticeChanged();
    void usageChanged();
    void isMenuOpenChanged();
    void windowSizeChanged();
    /// The window's size or the height of the bottom panels changed.
    void geometryChanged();
    /// clickThroughRect() has a new value.
    void clickThroughRectChanged();

private:
    bool isAnswering() const;
    void tick();
    void scheduleTick();
    void clearNotice();
    void announceGeometry();

    std::function<qint64()> m_clock;
    QTimer m_timer;
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
    bool m_isBlocked = false;
    bool m_isThreadCovered = false;
    bool m_hasAnswer = false;
    QString m_notice;
    QString m_stopShortcut;
    std::optional<double> m_usage;
    bool m_isMenuOpen = false;
    bool m_isSheetOpen = false;
    QSizeF m_windowSize;
    double m_bottomPanelsHeight = 0;
    QRect m_announcedClickThrough;
};

} // namespace quellora
